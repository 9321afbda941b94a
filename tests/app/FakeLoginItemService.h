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
        return change(registerCalls, registerFailure, afterRegister);
    }
    LoginItemResult unregisterItem() override {
        return change(unregisterCalls, unregisterFailure, afterUnregister);
    }

private:
    // One more call: it fails with `failure` when set, else the status becomes `after`.
    LoginItemResult change(int& calls, const std::optional<LoginItemError>& failure,
                           LoginItemStatus after) {
        ++calls;
        if (failure) {
            return unexpected(*failure);
        }
        current = after;
        return std::monostate{};
    }
};

} // namespace ambrel::testing
