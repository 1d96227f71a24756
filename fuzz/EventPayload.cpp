// Arbitrary payloads against arbitrary class definitions. Run with -close_fd_mask=1: an unknown type says so on the
// standard output.

#include "platform/Accounts.h"
#include "platform/Errors.h"
#include "platform/Platform.h"
#include "process/events/EventDecoder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Velmor {

namespace {
class AnyAccounts : public Accounts {
public:
    bool lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t&) override {
        user = sid;
        domain = "D";
        return sid.size() % 2 == 0;
    }
};

class AnyTrace : public KernelTrace {
public:
    uint32_t query(std::string_view, TraceProperties&) override { return NativeError::instanceNotFound; }
    uint32_t start(std::string_view, const TraceProperties&) override { return NativeError::accessDenied; }
    uint32_t stop(std::string_view) override { return NativeError::accessDenied; }
    TraceHandle open(std::string_view, uint32_t&) override { return nullptr; }
    uint32_t process(const TraceHandle&, const EventCallback&, const BufferCallback&) override { return 0; }
    void close(TraceHandle&) override {}
    uint32_t pointerSize() override { return width; }
    std::string shortcomings() override { return {}; }
    bool canStart(std::string&) override { return false; }

    uint32_t width = 4;
};

/// Takes decisions off the front of the input; zeros when it is used up.
class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    template <typename Number>
    Number number() {
        Number value{};
        const size_t count = std::min(sizeof(value), size_);
        std::memcpy(&value, data_, count);
        data_ += count;
        size_ -= count;
        return value;
    }
    std::span<const uint8_t> rest() const { return {data_, size_}; }
    size_t size() const { return size_; }

private:
    const uint8_t* data_;
    size_t size_;
};

SchemaProperty makeProperty(Input& input, int32_t place) {
    constexpr std::array<uint32_t, 16> types{2, 3, 8, 11, 13, 16, 17, 18, 19, 20, 21, 103, 8, 13, 12, 0xffff};
    constexpr std::array extensions{"Sid", "Guid", "Port", "sid"};
    constexpr std::array terminations{"NullTerminated", "Counted", "ReverseCounted", "NotCounted", "?"};
    const auto choice = input.number<uint8_t>();
    const auto notes = input.number<uint8_t>();
    SchemaProperty property{"x", types[choice & 15U], {{"WmiDataId", place}}};
    if (choice & 16U)
        property.cimType |= 0x2000;
    if (notes & 1U)
        property.qualifiers.push_back({"MAX", input.number<int32_t>()});
    if (notes & 2U)
        property.qualifiers.push_back({"Format", std::string("x")});
    if (notes & 4U)
        property.qualifiers.push_back({"Extension", std::string(extensions[notes >> 6U])});
    if (notes & 8U)
        property.qualifiers.push_back({"StringTermination", std::string(terminations[choice >> 5U & 3U])});
    if (notes & 16U)
        property.qualifiers.push_back({"Pointer", std::monostate()});
    if (notes & 32U)
        property.qualifiers.push_back({"Description", std::string("y")});
    return property;
}

void run(Input input) {
    static AnyAccounts accounts;
    static AnyTrace trace;
    static Platform ports = nativePlatform();
    ports.accounts = &accounts;
    ports.kernelTrace = &trace;
    usePlatform(&ports);
    const auto head = input.number<uint8_t>();
    trace.width = head & 1U ? 8 : 4;
    SchemaClass typeClass;
    for (int32_t i = 0; i < static_cast<int32_t>(head >> 1U & 15U); ++i)
        typeClass.properties.push_back(makeProperty(input, (head & 128U) && i == 2 ? input.number<int32_t>() : i + 1));
    EventDecoder::PropertyList list;
    std::vector<uint32_t> order;
    if (!EventDecoder::getProperties(typeClass, list, order))
        return;
    // In memory of its own, so that a read behind its end shows.
    const size_t size = std::min<size_t>(input.size(), UINT16_MAX);
    const auto payload = std::make_unique<uint8_t[]>(size);
    std::copy_n(input.rest().begin(), size, payload.get());
    EventDecoder decoder;
    const uint8_t* position = payload.get();
    const uint8_t* const end = position + size;
    for (const uint32_t index : order) {
        const uint8_t* next = decoder.getPropertyValue(*list[index], position, static_cast<uint16_t>(end - position));
        if (!next)
            return;
        if (next < position || next > end)
            std::abort();
        position = next;
    }
}
} // namespace

} // namespace Velmor

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Velmor::run(Velmor::Input(data, size));
    return 0;
}
