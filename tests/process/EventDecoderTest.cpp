#include "process/events/EventDecoder.h"

#include "process/Process.h"
#include "process/ProcessShared.h"
#include "support/ScriptedPlatform.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
constexpr uint32_t arrayBit = 0x2000;

class EventDecoderTest : public ::testing::Test {
protected:
    EventDecoderTest() {
        Process::setLogger({});
        processShared().systemNumber = 0;
        processShared().hasEventSchema = ProcessShared().hasEventSchema.load();
    }
    ~EventDecoderTest() override { processShared().systemNumber = 0; }

    /// How many bytes a value takes; -1 if there is none.
    ptrdiff_t take(const SchemaProperty& property, const std::vector<uint8_t>& payload) {
        const uint8_t* end = decoder.getPropertyValue(property, payload.data(), static_cast<uint16_t>(payload.size()));
        return end ? end - payload.data() : -1;
    }

    ScriptedPlatform os;
    EventDecoder decoder;
};

SchemaProperty of(uint32_t cimType, SchemaQualifiers qualifiers = {}) {
    return {"x", cimType, std::move(qualifiers)};
}

/// The object that an event gives.
std::unique_ptr<Process> made(const ScriptedEvent& event) {
    std::unique_ptr<Process> process;
    event.handOver([&](const TraceEvent& e) { process = std::make_unique<Process>(e); });
    return process;
}
} // namespace

TEST_F(EventDecoderTest, EachTypeHasItsWidth) {
    const SchemaQualifiers two{{"MAX", 2}};
    using Case = std::tuple<SchemaProperty, size_t, ptrdiff_t>;
    int number = 0;
    using Width = std::pair<uint32_t, ptrdiff_t>;
    for (const auto& [type, width] : {Width{2, 2}, Width{3, 4}, Width{11, 4}, Width{16, 1}, Width{18, 2}, Width{19, 4},
                                      Width{20, 8}, Width{21, 8}, Width{103, 2}, Width{12, -1}, Width{13, -1}}) {
        EXPECT_EQ(take(of(type), std::vector<uint8_t>(40, 1)), width) << type;
        EXPECT_EQ(take(of(type), std::vector<uint8_t>(static_cast<size_t>(std::max<ptrdiff_t>(width, 1)) - 1, 1)), -1)
            << type;
    }
    for (const auto& [property, given, taken] :
         {Case{of(103 | arrayBit, two), 3, -1}, Case{of(19 | arrayBit, two), 9, 8}, Case{of(19 | arrayBit), 8, -1},
          Case{of(19 | arrayBit, {{"MAX", 0}}), 8, 0}, Case{of(19 | arrayBit, {{"MAX", INT32_MAX}}), 100, -1},
          Case{of(17 | arrayBit, {{"MAX", 5}, {"Extension", std::string("IPAddr")}}), 20, 16},
          Case{of(17, {{"Extension", std::string("gUID")}}), 15, -1},
          Case{of(21, {{"Pointer", std::monostate()}}), 4, 4}})
        EXPECT_EQ(take(property, std::vector<uint8_t>(given, 1)), taken) << "case " << number++;
}

TEST_F(EventDecoderTest, ASlotHoldsTheLastElement) {
    const auto payload = PayloadText().number(7U).number(9U).bytes();
    EXPECT_EQ(take(of(19 | arrayBit, {{"MAX", 2}}), payload), 8);
    EXPECT_EQ(decoder.values().uint32Value, 9U);
    EXPECT_EQ(take(of(19 | arrayBit, {{"MAX", 0}}), payload), 0);
    EXPECT_EQ(decoder.values().uint32Value, 0U);
    EXPECT_EQ(take(of(3), PayloadText().number(-5).bytes()), 4);
    EXPECT_EQ(decoder.values().sint32Value, -5);
}

TEST_F(EventDecoderTest, PointersAreAsWideAsThePayloadSays) {
    const SchemaProperty pointer = of(19, {{"Pointer", std::monostate()}});
    const auto payload = PayloadText().number<uint64_t>(0x1122334455667788).bytes();
    EXPECT_EQ(take(pointer, payload), 4);
    EXPECT_EQ(decoder.values().pointerValue, 0x55667788U);
    os.kernelTrace.pointerBytes = 8;
    EXPECT_EQ(take(pointer, payload), 8);
    EXPECT_EQ(decoder.values().pointerValue64, 0x1122334455667788U);
}

TEST_F(EventDecoderTest, TextsInAllForms) {
    using namespace std::string_literals;
    const auto ends = [](const char* how) { return SchemaQualifier{"StringTermination", std::string(how)}; };
    const SchemaQualifier wide{"Format", std::string("w")};
    using Case = std::tuple<SchemaProperty, std::string, ptrdiff_t, std::string>;
    int number = 0;
    for (const auto& [property, payload, taken, text] :
         {Case{of(8), "cad\0x"s, 4, "cad"}, Case{of(8), "cad"s, -1, ""},
          Case{of(8, {ends("nullTERMINATED")}), "\0x"s, 1, ""}, Case{of(8, {wide}), "c\0\xe9\1\0\0x\0"s, 6, "c?"},
          Case{of(8, {wide}), "c\0a\0\0"s, -1, ""}, Case{of(8, {ends("Counted")}), "\3\0cadx"s, 5, "cad"},
          Case{of(8, {ends("Counted")}), "\7\0cadx"s, -1, ""}, Case{of(8, {ends("Counted")}), "\3"s, -1, ""},
          Case{of(8, {ends("Counted"), wide}), "\2\0c\0a\0x\0"s, 6, "ca"},
          Case{of(8, {ends("ReverseCounted")}), "\0\3cadx"s, 5, "cad"},
          Case{of(8, {ends("NotCounted"), wide}), "c\0a\0x"s, 5, "ca"}, Case{of(8, {ends("Guessed")}), "cad"s, 0, ""},
          Case{of(8 | arrayBit, {{"MAX", 2}}), "one\0two\0x"s, 8, "two"},
          Case{of(8 | arrayBit, {{"MAX", 3}}), "one\0two\0x"s, -1, "two"},
          Case{of(8 | arrayBit, {{"MAX", INT32_MAX}, ends("NotCounted")}), "one"s, 3, ""}}) {
        EXPECT_EQ(take(property, PayloadText().text(payload).bytes()), taken) << "case " << number;
        if (taken >= 0) {
            EXPECT_EQ(decoder.values().stringValue, text) << "case " << number;
        }
        ++number;
    }
}

TEST_F(EventDecoderTest, AccountsAreLookedUpBySid) {
    const SchemaProperty user = of(13, {{"Extension", std::string("SID")}});
    EXPECT_EQ(take(user, PayloadText().sid(500, 8).number(1U).bytes()), 24);
    EXPECT_EQ(decoder.values().accountName, "ann");
    EXPECT_EQ(decoder.values().accountDomain, "HQ");
    os.kernelTrace.pointerBytes = 8;
    EXPECT_EQ(take(user, PayloadText().sid(77, 16).bytes()), 32);
    EXPECT_EQ(decoder.values().accountName, "ann") << "one that nobody knows changes nothing";
    EXPECT_EQ(take(user, PayloadText().number(0U).bytes()), 4);
    EXPECT_EQ(decoder.values().accountName, "");
    auto torn = PayloadText().sid(500, 16).bytes();
    torn.pop_back();
    EXPECT_EQ(take(user, torn), -1);
    EXPECT_EQ(take(user, {1, 1, 1}), -1);
}

TEST_F(EventDecoderTest, ClassesAreFoundByGuidVersionAndType) {
    ScriptedSchema& schema = os.eventSchema;
    schema.addEventClass("Other", "{11111111-fe05-11d0-9dda-00c04fd7ba7c}");
    schema.addEventClass("Old", processGuidText, {{"EventVersion", 1}});
    schema.addEventClass("Odd", processGuidText, {{"EventVersion", std::string("2")}});
    schema.addEventClass("New", processGuidText, {{"EventVersion", 2}});
    const SchemaClass* found = EventDecoder::findEventClass(guidText(processGuid), 2);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->path, "New");
    EXPECT_FALSE(EventDecoder::findEventClass(guidText(processGuid), 3));
    schema.addEventClass("Any", processGuidText);
    ASSERT_TRUE(EventDecoder::findEventClass(guidText(processGuid), 3));
    schema.addTypeClass("New", "New_1", {1});
    schema.addTypeClass("New", "New_2", {2, 4});
    schema.addTypeClass("Old", "Old_3", {3});
    EXPECT_EQ(EventDecoder::findEventTypeClass(*found, 1)->path, "New_1");
    EXPECT_EQ(EventDecoder::findEventTypeClass(*found, 4)->path, "New_2");
    EXPECT_FALSE(EventDecoder::findEventTypeClass(*found, 3));
}

TEST_F(EventDecoderTest, PropertiesThatAreNotInOneRowAreRefused) {
    EventDecoder::PropertyList list;
    std::vector<uint32_t> order;
    const auto property = [](const char* name, uint32_t type, int32_t place) {
        return ScriptedSchema::property(name, type, place);
    };
    const SchemaClass whole{"", {}, {property("b", 19, 2), property("a", 19, 1)}};
    ASSERT_TRUE(EventDecoder::getProperties(whole, list, order));
    EXPECT_EQ(order, (std::vector<uint32_t>{1, 0}));
    for (const int32_t place : {0, -1, 1, 3, INT32_MAX})
        EXPECT_FALSE(
            EventDecoder::getProperties({"", {}, {property("a", 19, 1), property("b", 19, place)}}, list, order))
            << place;
    EXPECT_FALSE(EventDecoder::getProperties({"", {}, {of(19)}}, list, order)) << "no place";
}

TEST_F(EventDecoderTest, AStartTakesItsNamesFromTheSystemWhileItHasThem) {
    os.eventSchema.describeProcesses();
    os.processes.start(5, "C:\\Windows\\Shell.exe");
    os.processes.start(40, "C:\\Apps\\CAD.exe");
    const int32_t now = os.clock.now();
    const auto told = [&](uint8_t type, uint32_t pid, int32_t second) {
        const auto process = made({type, 2, now + second, processPayload(pid, "Cad.exe", 5)});
        const bool isStart = process->getState() == ProcessState::started;
        return std::to_string(process->pid()) + " " + process->getExecutable() + " " + process->getAccount() +
               (isStart                                      ? " starts "
                : process->getState() == ProcessState::ended ? " ends "
                                                             : " ? ") +
               std::to_string((isStart ? process->getStart() : process->getEnd()).getSeconds() - now) +
               (process->isOpen() ? " open" : "");
    };
    EXPECT_EQ(told(1, 40, -3), "40 c:\\apps\\cad.exe \\\\HQ\\ann starts -3 open");
    EXPECT_EQ(told(1, 41, 60), "41 cad.exe \\\\HQ\\ann starts 0") << "neither lost nor its parent's, and not to come";
    EXPECT_EQ(told(2, 40, -1), "40 cad.exe \\\\HQ\\ann ends -1");
}

TEST_F(EventDecoderTest, WhatThePayloadDoesNotTellStaysAsItIs) {
    os.eventSchema.describeProcesses();
    const int32_t now = os.clock.now();
    const auto other = made({3, 2, now, processPayload(40, "x", 5)});
    EXPECT_EQ(other->getState(), ProcessState::unresolved);
    EXPECT_EQ(os.eventSchema.enumerations, 0);
    auto torn = processPayload(40, "cad.exe", 5);
    torn.resize(14);
    const auto half = made({2, 2, now, torn});
    EXPECT_EQ(half->pid(), 40U);
    EXPECT_EQ(half->getExecutable(), "<<unknown>>");
    EXPECT_EQ(made({2, 9, now, processPayload(40, "x", 5)})->pid(), 0U) << "no class of that version";
    EXPECT_EQ(made({2, 2, now, {}})->pid(), 0U);
    processShared().hasEventSchema = ProcessShared().hasEventSchema.load();
    os.eventSchema.connections = 0;
    for (const uint32_t failure : {SchemaConnection::noLocator, SchemaConnection::noConnection}) {
        os.eventSchema.connection = failure;
        const auto unread = made({1, 2, now - 5, processPayload(40, "x", 5)});
        EXPECT_EQ(unread->getStart().getSeconds(), now) << "no time is taken either";
    }
    EXPECT_EQ(os.eventSchema.connections, 2) << "tried again";
}

TEST_F(EventDecoderTest, OldSystemsHaveAFixedLayout) {
    os.machine.version.major = 5;
    os.machine.version.minor = 0;
    const auto payload = PayloadText().number(40U).number(5U).number(1U).number(0U).sid(500, 0).bytes();
    const auto process = made({2, 0, os.clock.now(), payload});
    EXPECT_EQ(process->pid(), 40U);
    EXPECT_EQ(process->getUser(), "ann");
    EXPECT_EQ(made({2, 0, 0, PayloadText().number<uint16_t>(4).bytes()})->pid(), 0U);
    processShared().systemNumber = 39;
    EXPECT_EQ(made({2, 0, 0, payload})->getState(), ProcessState::unresolved);
}

} // namespace Velmor
