// Rule files of any bytes, and a record that they judge.

#include "FuzzFile.h"

#include "rules/IncludeExclude.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    IncludeExclude rules;
    std::string error;
    rules.load(file.write(data, size), error);
    RuleFacts facts(RuleKey::datatype, "runtally");
    facts.setText(RuleKey::user, "bob");
    facts.setText(RuleKey::app, "cad");
    facts.setNumber(RuleKey::duration, 30);
    rules.isIncluded(facts);
    return 0;
}
