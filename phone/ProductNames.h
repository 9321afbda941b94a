#pragma once

#include <span>
#include <string>
#include <string_view>

namespace ambrel {

// The names people know their iPhone, iPad or iPod touch by ("iPhone 13 Pro"), from the product
// type lockdown gives ("iPhone14,2"). The table is phone/ProductNames.tsv, built in. Pure;
// thread-safe.
class ProductNames {
public:
    struct Entry {
        std::string_view productType;
        std::string_view name;
        bool operator==(const Entry&) const = default;
    };

    // The marketing name of `productType`; the type itself when the table does not know it (a
    // model newer than the table), so there is always something to show. Empty for empty.
    static std::string marketingName(std::string_view productType);

    // Every entry, sorted by product type.
    static std::span<const Entry> all();
};

} // namespace ambrel
