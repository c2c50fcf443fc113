#include "KorvaneCommand/DoctorCommand.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/doctor/Checks.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

namespace Korvane {

namespace {

struct DoctorReport {
    bool ok = true;
    Findings findings;
};
BOOST_DESCRIBE_STRUCT(DoctorReport, (), (ok, findings))

struct Check {
    const char* name;
    Findings (*look)();
};

constexpr std::array checks{
    Check{"installation", Checks::installation}, Check{"container", Checks::container},
    Check{"databases", Checks::databases},       Check{"keychain", Checks::keychain},
    Check{"file events", Checks::fileEvents},    Check{"service", Checks::service},
    Check{"processes", Checks::processes},
};

/// What a check found, or that it could not look.
Findings outcome(const Check& check) {
    try {
        return check.look();
    } catch (const std::exception& error) {
        return {{check.name, FindingLevel::problem, error.what(), ""}};
    }
}

const char* nameOf(FindingLevel level) {
    return boost::describe::enum_to_string(level, "");
}

int diagnose(bool json) {
    DoctorReport report;
    for (const auto& check : checks) {
        for (const auto& finding : outcome(check)) {
            report.ok = report.ok && finding.level != FindingLevel::problem;
            if (!json)
                fmt::print("{:8} {:14} {}{}{}\n", nameOf(finding.level), finding.check,
                           printable(finding.text), finding.advice.empty() ? "" : ". ",
                           printable(finding.advice));
            report.findings.push_back(finding);
        }
    }
    if (json)
        std::puts(KRJSON::write(report).c_str());
    return report.ok ? ExitCode::done : ExitCode::failed;
}

} // namespace

void addDoctorCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("doctor", "Find what is wrong here");
    command->footer(
        "Looks at the installation, the data of this user and the service, and changes nothing. Exits "
        "with 1 when something is a problem; a warning is none.");
    const auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print one line of JSON");
    command->callback([json, &status] { status = diagnose(*json); });
}

} // namespace Korvane
