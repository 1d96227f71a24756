// The decision whether a record is wanted, with 100 rules of three conditions of which only the last holds.

#include "rules/IncludeExclude.h"
#include "shared/library/common/text/TextUtils.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace {

constexpr int ruleCount = 100;

Velmor::RuleFacts makeFacts() {
    Velmor::RuleFacts facts(Velmor::RuleKey::datatype, "runtally");
    facts.setText(Velmor::RuleKey::exe, "/usr/lib/firefox/firefox");
    facts.setText(Velmor::RuleKey::app, "Firefox");
    facts.setText(Velmor::RuleKey::user, "bob");
    facts.setNumber(Velmor::RuleKey::duration, 300);
    return facts;
}

void isIncluded(benchmark::State& state) {
    const std::string file = "/tmp/velmor_bench_rules_" + std::to_string(getpid());
    std::ofstream out(file);
    for (int i = 0; i < ruleCount; ++i)
        out << "include datatype=runtally duration=60 app=*cad" << i << "*\n";
    out << "include datatype=* exe=* user=b*\n";
    out.close();
    Velmor::IncludeExclude rules;
    std::string error;
    if (!rules.load(file, error))
        state.SkipWithError(error.c_str());
    std::remove(file.c_str());
    for (auto _ : state) {
        const Velmor::RuleFacts facts = makeFacts();
        benchmark::DoNotOptimize(rules.isIncluded(facts));
    }
}
BENCHMARK(isIncluded);

/// The floor: as many comparisons of the same texts, and nothing else.
void comparisonsAlone(benchmark::State& state) {
    const std::string application = "Firefox";
    for (auto _ : state)
        for (int i = 0; i < ruleCount; ++i) {
            benchmark::DoNotOptimize(Velmor::wildcardMatch("runtally", "runtally"));
            benchmark::DoNotOptimize(Velmor::wildcardMatch("*cad7*", application));
        }
}
BENCHMARK(comparisonsAlone);

} // namespace

BENCHMARK_MAIN();
