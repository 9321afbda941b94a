#include "phone/ProductNames.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace ambrel {

namespace {

// In the .tsv's order, which groups the models by family and year for the people editing it.
constexpr ProductNames::Entry kListedProductNames[] = {
#include "ProductNamesTable.inc"
};

constexpr bool typeBefore(const ProductNames::Entry& left, const ProductNames::Entry& right) {
    return left.productType < right.productType;
}

template <std::size_t Count>
constexpr std::array<ProductNames::Entry, Count>
sortedByType(const ProductNames::Entry (&listed)[Count]) {
    std::array<ProductNames::Entry, Count> entries{};
    std::copy(std::begin(listed), std::end(listed), entries.begin());
    std::sort(entries.begin(), entries.end(), typeBefore);
    return entries;
}

constexpr auto kProductNames = sortedByType(kListedProductNames);

// Each type once: a second line for a type would make its name depend on the sort.
static_assert(std::adjacent_find(kProductNames.begin(), kProductNames.end(),
                                 [](const auto& left, const auto& right) {
                                     return !typeBefore(left, right);
                                 }) == kProductNames.end(),
              "phone/ProductNames.tsv lists a product type twice");

} // namespace

std::string ProductNames::marketingName(std::string_view productType) {
    const auto found = std::lower_bound(
        kProductNames.begin(), kProductNames.end(), productType,
        [](const Entry& entry, std::string_view type) { return entry.productType < type; });
    if (found != kProductNames.end() && found->productType == productType) {
        return std::string(found->name);
    }
    return std::string(productType);
}

std::span<const ProductNames::Entry> ProductNames::all() {
    return kProductNames;
}

} // namespace ambrel
