#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/Folders.h"
#include "platform/HostInfo.h"
#include "platform/PowerSourceProvider.h"

namespace ambrel::testing {

class FakePowerSourceProvider final : public PowerSourceProvider {
public:
    std::optional<PowerSourceList> sources;
    int calls = 0;
    std::optional<PowerSourceList> copyPowerSources() override {
        ++calls;
        return sources;
    }
};

class FakeHostInfo final : public HostInfo {
public:
    std::optional<std::string> name = std::string("Anna\u2019s MacBook Pro");
    std::optional<std::string> rawModel = std::string("MacBookPro18,3", 15);
    std::optional<std::string> localizedName() const override { return name; }
    std::optional<std::string> rawModelIdentifier() const override { return rawModel; }
};

class FakeFolders final : public Folders {
public:
    std::optional<std::filesystem::path> support;
    std::filesystem::path temp = "/tmp";
    std::optional<std::filesystem::path> applicationSupport() const override { return support; }
    std::filesystem::path temporary() const override { return temp; }
};

class FakeBundle final : public Bundle {
public:
    std::filesystem::path executable = "/opt/tovrin/bin/tovrin";
    std::optional<std::filesystem::path> resources =
        std::filesystem::path("/opt/tovrin/share/tovrin");
    std::map<std::string, std::string> info;
    std::filesystem::path executablePath() const override { return executable; }
    std::optional<std::filesystem::path> resourceFolder() const override { return resources; }
    std::optional<std::string> infoString(const std::string& key) const override {
        const auto found = info.find(key);
        return found == info.end() ? std::nullopt : std::optional<std::string>(found->second);
    }
};

} // namespace ambrel::testing
