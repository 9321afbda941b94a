// The battery answer of `ideviceinfo -x` as the phone reader parses it: any bytes a tool could
// print, warnings before the document included.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "phone/PropertyList.h"

using ambrel::fuzzing::check;

namespace {

void checkValue(const ambrel::PropertyValue& value) {
    using Kind = ambrel::PropertyValue::Kind;
    const bool isNumber = value.kind() == Kind::integer || value.kind() == Kind::real ||
                          value.kind() == Kind::boolean;
    check(value.isNumber() == isNumber, "integers, reals and booleans are the numbers");
    check(value.stringValue().has_value() == (value.kind() == Kind::string),
          "only strings have text");
    const auto integer = value.integerValue();
    const auto truth = value.boolValue();
    if (!isNumber) {
        check(!integer && !truth, "a value that is no number has no number value");
        return;
    }
    if (value.kind() != Kind::real) {
        check(integer && truth, "integers and booleans always have both number values");
        check(*truth == (*integer != 0), "the truth of an integer is whether it is non-zero");
    }
    if (value.kind() == Kind::boolean) {
        check(*integer == 0 || *integer == 1, "a boolean counts as 0 or 1");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view output(reinterpret_cast<const char*>(data), size);
    const auto dictionary = ambrel::parsePropertyList(output);
    if (output.find("<?xml") == std::string_view::npos) {
        check(!dictionary, "output without the XML marker never parses");
    }
    if (!dictionary) {
        return 0;
    }
    for (const auto& [key, value] : *dictionary) {
        checkValue(value);
    }
    check(ambrel::parsePropertyList(output) == dictionary, "parsing is deterministic");
    return 0;
}
