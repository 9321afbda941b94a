#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diagnosis/ConnectionCheck.h"

namespace ambrel {

// What the connection window can do by itself about a problem, shown as a button.
enum class PathAction {
    // Nothing but checking again once the user has done what is said.
    checkAgain,
    // Pairing: the phone on the cable shows its Trust dialog.
    pair,
    // "Show this iPhone when on Wi-Fi", over the cable.
    turnOnWifi,
};

// One step of the path from this computer to the phone's battery, in people's words.
struct PathStep {
    // The check's stable name ("avahiDaemon").
    std::string name;
    std::string title;
    CheckStatus status = CheckStatus::skipped;
};

// The first step that failed, said in two sentences: what is wrong, and what to do.
struct PathProblem {
    std::string whatIsWrong;
    std::string whatToDo;
    // A command to type, when there is one (shown to copy); empty otherwise.
    std::string command;
    PathAction action = PathAction::checkAgain;
    // The button's text for `action`.
    std::string actionTitle;
};

// The connection check as the window shows it: the steps up to the first failure, that one
// explained, and the rest folded into one line. Pure.
struct ConnectionPath {
    std::vector<PathStep> steps;
    std::optional<PathProblem> problem;
    // How many steps come after the failed one, and the line that says so ("3 more checks wait
    // for this one"); 0 and empty when nothing failed.
    int folded = 0;
    std::string foldedLine;
    // One sentence about the whole.
    std::string summary;

    static ConnectionPath of(const ConnectionReport& report);
    // A step's title for people, by the check's name; the name itself when unknown.
    static std::string titleOf(const std::string& checkName);
    // The problem of a failed check, by its name and cause.
    static PathProblem problemOf(const CheckResult& failed);
    // A phone's line under its name: "iPhone 13 Pro · iOS 17.4 · on USB". `model` is the name
    // people know it by; an empty model or version is left out.
    static std::string phoneLine(const std::string& model, const std::string& osVersion, bool onUsb,
                                 bool onWifi);
};

} // namespace ambrel
