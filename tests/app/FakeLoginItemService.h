#pragma once

#include <optional>

#include "platform/LoginItemService.h"

namespace ambrel::testing {

// A login-item service whose status and outcomes the test sets; counts the calls.
class FakeLoginItemService final : public LoginItemService {
public:
    LoginItemStatus current = LoginItemStatus::notRegistered;
    // The status after a successful register / unregister.
    LoginItemStatus afterRegister = LoginItemStatus::enabled;
    LoginItemStatus afterUnregister = LoginItemStatus::notRegistered;
    std::optional<LoginItemError> registerFailure;
    std::optional<LoginItemError> unregisterFailure;
    mutable int statusReads = 0;
    int registerCalls = 0;
    int unregisterCalls = 0;

    LoginItemStatus status() const override {
        ++statusReads;
        return current;
    }
    LoginItemResult registerItem() override {
        ++registerCalls;
        if (registerFailure) {
            return unexpected(*registerFailure);
        }
        current = afterRegister;
        return std::monostate{};
    }
    LoginItemResult unregisterItem() override {
        ++unregisterCalls;
        if (unregisterFailure) {
            return unexpected(*unregisterFailure);
        }
        current = afterUnregister;
        return std::monostate{};
    }
};

} // namespace ambrel::testing
