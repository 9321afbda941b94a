#include "tests/faults/FaultBundle.h"

#include "tests/fakes/ProgramBundle.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <system_error>

#include <unistd.h>

namespace ambrel::testing {

namespace fs = std::filesystem;

namespace {

// The user and group "nobody" of Debian.
constexpr unsigned kUnprivilegedUser = 65534;

constexpr double kReferenceDateOffset = 978307200.0;

bool isRoot() {
    return ::geteuid() == 0;
}

void writeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Single-quoted for /bin/sh; the paths here never hold a quote of their own.
std::string shellQuoted(const fs::path& path) {
    return "'" + path.string() + "'";
}

} // namespace

double secondsSinceReferenceDate() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - kReferenceDateOffset;
}

FaultBundle::FaultBundle(const fs::path& root)
    : m_root(root), m_executable(root / "bundle" / "bin" / "tovrin"),
      m_tools(root / "bundle" / "share" / "tovrin" / "Runtime" / "bin"), m_folders(root),
      m_temporary(root / "tmp") {
    if (root.empty()) {
        m_failure = "no folder for the bundle";
        return;
    }
    if (root.string().find('\'') != std::string::npos) {
        m_failure = "the bundle's folder must not hold a quote";
        return;
    }
    const auto bundle = copyBuiltProgram(root / "bundle");
    if (!bundle.failure.empty()) {
        m_failure = bundle.failure;
        return;
    }
    m_folders.create();
    std::error_code error;
    fs::create_directories(m_temporary, error);
}

void FaultBundle::writeTool(const std::string& name, const std::string& script,
                            fs::perms mode) const {
    const fs::path path = m_tools / name;
    writeFile(path, "#!/bin/sh\n"
                    "ulimit -c 0\n"
                    "{ printf '%s' \"${0##*/}\"; for a in \"$@\"; do printf ' [%s]' \"$a\"; done; "
                    "printf '\\n'; } >> " +
                        shellQuoted(toolLog()) + "\n" + script + "\n");
    std::error_code error;
    fs::permissions(path, mode, error);
}

void FaultBundle::writeCache(const std::string& bytes) const {
    std::error_code error;
    fs::create_directories(cacheFile().parent_path(), error);
    fs::permissions(cacheFile().parent_path(), fs::perms::owner_all, error);
    writeFile(cacheFile(), bytes);
    fs::permissions(cacheFile(), fs::perms::owner_read | fs::perms::owner_write, error);
}

std::vector<std::string> FaultBundle::toolRuns() const {
    std::vector<std::string> lines;
    std::ifstream stream(toolLog());
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

unsigned FaultBundle::runningUser() {
    return isRoot() ? kUnprivilegedUser : ::geteuid();
}

std::vector<std::string> FaultBundle::environment() const {
    return environmentWithDisplay(false);
}

std::vector<std::string> FaultBundle::environmentForXvfbRun() const {
    return environmentWithDisplay(true);
}

std::vector<std::string> FaultBundle::environmentWithDisplay(bool underXvfbRun) const {
    auto changes = m_folders.environment();
    changes["TMPDIR"] = m_temporary.string();
    changes["DISPLAY"] = std::nullopt;
    changes["QT_QPA_PLATFORM"] = underXvfbRun ? "xcb" : "offscreen";
    return environmentWith(changes);
}

std::vector<std::string> FaultBundle::command(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command;
    if (isRoot()) {
        const std::string id = std::to_string(kUnprivilegedUser);
        command = {"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--"};
    }
    command.push_back(m_executable.string());
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

void FaultBundle::handOver(const std::vector<fs::path>& keepOwner) const {
    if (!isRoot()) {
        return;
    }
    const auto handOne = [&](const fs::path& path) {
        if (std::find(keepOwner.begin(), keepOwner.end(), path) == keepOwner.end()) {
            [[maybe_unused]] const int result =
                ::lchown(path.c_str(), kUnprivilegedUser, kUnprivilegedUser);
        }
    };
    handOne(m_root);
    std::error_code error;
    for (auto entry = fs::recursive_directory_iterator(
             m_root, fs::directory_options::skip_permission_denied, error);
         !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        handOne(entry->path());
    }
}

Readings FaultBundle::readings(std::chrono::duration<double> limit,
                               const std::vector<fs::path>& keepOwner) const {
    handOver(keepOwner);
    Readings result{runProcess(command({"--readings"}), environment(), limit),
                    nlohmann::json::value_t::discarded};
    const auto& out = result.outcome.out;
    if (!out.empty() && out.back() == '\n' && out.find('\n') == out.size() - 1) {
        result.report = nlohmann::json::parse(out, nullptr, false);
    }
    return result;
}

namespace {

// The parent of process `pid`, or 0 when it cannot be read.
pid_t parentOf(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(stat, text)) {
        return 0;
    }
    // The parent is the second field after the command name, which may hold anything.
    const auto close = text.rfind(')');
    std::istringstream rest(close == std::string::npos ? std::string() : text.substr(close + 1));
    std::string state;
    pid_t parent = 0;
    rest >> state >> parent;
    return parent;
}

} // namespace

std::vector<pid_t> processesRunning(const fs::path& executable) {
    std::vector<pid_t> found;
    std::error_code error;
    const fs::path wanted = fs::weakly_canonical(executable, error);
    for (auto entry = fs::directory_iterator("/proc", error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) {
            continue;
        }
        std::error_code linkError;
        const fs::path target = fs::read_symlink(entry->path() / "exe", linkError);
        if (!linkError && target == wanted) {
            found.push_back(static_cast<pid_t>(std::stol(name)));
        }
    }
    // A child of one of them with the same program is a tool being started, caught between its
    // fork and its exec: it is not another copy of the program.
    std::erase_if(found, [&found](pid_t pid) {
        return std::find(found.begin(), found.end(), parentOf(pid)) != found.end();
    });
    return found;
}

bool isAlive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(stat, text)) {
        return false;
    }
    // The state follows the command name, which is in parentheses and may hold anything.
    const auto close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z' &&
           text[close + 2] != 'X';
}

std::optional<std::string> fileBytes(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

std::string savedReading(const std::string& name, int percentage, double lastUpdated,
                         const std::string& source) {
    const nlohmann::json snapshot = {{"id", "iphone"},           {"name", name},
                                     {"percentage", percentage}, {"isCharging", false},
                                     {"isPluggedIn", true},      {"lastUpdated", lastUpdated},
                                     {"source", source},         {"model", "iPhone14,2"}};
    return snapshot.dump();
}

std::string batteryAnswer(int percentage, bool charging) {
    return "printf '%s\\n' '<?xml version=\"1.0\" encoding=\"UTF-8\"?>' "
           "'<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">' "
           "'<plist version=\"1.0\">' '<dict>' "
           "'\t<key>BatteryCurrentCapacity</key>' '\t<integer>" +
           std::to_string(percentage) +
           "</integer>' "
           "'\t<key>BatteryIsCharging</key>' '\t<" +
           (charging ? "true" : "false") +
           "/>' "
           "'\t<key>ExternalConnected</key>' '\t<true/>' '</dict>' '</plist>'";
}

std::string infoTool(const std::string& batteryScript) {
    return "case \"$*\" in\n"
           "*'-q com.apple.mobile.battery -x'*)\n" +
           batteryScript +
           "\n;;\n"
           "*'-k DeviceName'*) echo 'Fault iPhone' ;;\n"
           "*'-k ProductType'*) echo 'iPhone14,2' ;;\n"
           "*) echo \"ERROR: unexpected $*\" >&2; exit 1 ;;\n"
           "esac\n";
}

} // namespace ambrel::testing
