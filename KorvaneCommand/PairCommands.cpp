#include "KorvaneCommand/PairCommands.hpp"

#include "KorvaneCommand/AccountData.hpp"
#include "KorvaneCommand/Client.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/account/PairingApproval.hpp"
#include "KorvaneCore/account/PairingDigits.hpp"
#include "KorvaneCore/account/PairingError.hpp"
#include "KorvaneCore/account/PairingOffer.hpp"
#include "KorvaneCore/config/DeviceInfo.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Log.hpp"

#include <boost/describe/class.hpp>

#include <cstdio>
#include <iostream>
#include <memory>

namespace Korvane {

namespace {

struct PairRequest {
    std::optional<std::string> service;
    std::optional<std::string> name;
    std::string code;
    bool typesDigits = false;
    bool json = false;
};

// One line for programs at each step.

struct Started {
    std::string code;
    std::int64_t validFor = 0; ///< seconds
    std::string step = "started";
};
BOOST_DESCRIBE_STRUCT(Started, (), (step, code, validFor))

struct Announced {
    std::optional<std::string> digits;
    std::optional<std::string> deviceName; ///< of the new device, to the one that approves
    std::optional<std::string> platform;   ///< likewise
    std::string step = "announced";
};
BOOST_DESCRIBE_STRUCT(Announced, (), (step, digits, deviceName, platform))

struct Paired {
    std::string email;
    std::string deviceId;
    std::string service;
    std::string step = "done";
};
BOOST_DESCRIBE_STRUCT(Paired, (), (step, email, deviceId, service))

struct Approved {
    std::string step = "done";
};
BOOST_DESCRIBE_STRUCT(Approved, (), (step))

/// Each step is there to be read before the next one is waited for.
template <class Step>
void tell(const PairRequest& request, const Step& step, const std::string& text) {
    std::puts(request.json ? KRJSON::write(step).c_str() : text.c_str());
    std::fflush(stdout);
}

/// A line of standard input; empty at its end. The question is for people only.
std::string answerTo(const PairRequest& request, const char* question) {
    if (!request.json)
        std::fputs(question, stderr);
    std::string line;
    std::getline(std::cin, line);
    if (line.ends_with('\r'))
        line.pop_back();
    return line;
}

bool saysYes(const PairRequest& request) {
    const auto answer = answerTo(request, "Do both devices show these digits? [y/N] ");
    return answer == "y" || answer == "Y" || answer == "yes";
}

std::string minutes(std::chrono::seconds time) {
    const auto whole = std::chrono::ceil<std::chrono::minutes>(time).count();
    return whole == 1 ? "a minute" : std::to_string(whole) + " minutes";
}

int start(const PairRequest& request) {
    Client client(request.service);
    client.run(client.account.requireSignedOut());
    PairingOffer offer(client.api, systemClock(), request.name.value_or(DeviceInfo::currentDeviceName()));
    const auto invitation = client.run(offer.start());
    tell(request, Started{invitation.code, invitation.validFor.count()},
         "Within " + minutes(invitation.validFor) + ", run this on a device that is signed in:\n\n  " +
             "korvane pair approve " + invitation.code + "\n");
    const auto digits = client.run(offer.answer());
    tell(request, Announced{digits, {}, {}},
         "The other device has answered. It must show the same digits as this one:\n\n  " +
             PairingDigits::grouped(digits) + "\n");
    if (!saysYes(request))
        throw PairingError(PairingError::Kind::notConfirmed);
    std::optional<FileLock> lock;
    client.run(offer.accept(client.account, [&lock] { lock = AccountData::claim(); }));
    if (request.name)
        DeviceInfo::setPreferredName(*request.name);
    const auto session = client.account.requiredSession();
    tell(request,
         Paired{session.user.email, session.device.id, std::string(client.configuration.apiBaseURL.buffer())},
         "Paired, and signed in as " + printable(session.user.email) + " on \"" +
             printable(session.device.name) + "\".");
    return ExitCode::done;
}

/// The new device waits no longer.
void decline(Client& client, PairingApproval& approval) {
    try {
        client.run(approval.decline());
    } catch (const std::exception& error) {
        Log::warning("account", std::string("the new device was not told: ") + error.what());
    }
}

int approve(const PairRequest& request) {
    Client client;
    client.requireSession();
    PairingApproval approval(client.api, client.account.masterKey());
    const auto digits = client.run(approval.announce(PairingDigits::bare(request.code)));
    Announced announced{{}, approval.device().deviceName, approval.device().platform};
    auto text = "The new device calls itself \"" + printable(approval.device().deviceName) + "\".";
    if (!request.typesDigits) {
        announced.digits = digits;
        text += " It must show the same digits as this one:\n\n  " + PairingDigits::grouped(digits) + "\n";
    }
    tell(request, announced, text);
    const bool isConfirmed =
        request.typesDigits ? PairingDigits::same(answerTo(request, "Digits on the new device: "), digits)
                            : saysYes(request);
    if (!isConfirmed) {
        decline(client, approval);
        throw PairingError(PairingError::Kind::notConfirmed);
    }
    client.run(approval.approve());
    tell(request, Approved{}, "The key is on its way; the new device asks for a last confirmation.");
    return ExitCode::done;
}

} // namespace

void addPairCommands(CLI::App& app, int& status) {
    auto* pair = app.add_subcommand("pair", "Sign in a new device");
    pair->footer("The new device starts, and one that is signed in approves.");
    pair->require_subcommand(1);
    const auto request = std::make_shared<PairRequest>();

    auto* starting = pair->add_subcommand("start", "Sign in on this new device");
    starting->footer(
        "Shows a code, then digits to compare, and signs in. The answer to the question is read from "
        "standard input.");
    CommonOptions::addService(*starting, request->service, "URL of the service, from the sign-in on");
    starting->add_option("--name", request->name, "What this device is to be called")->type_name("NAME");
    starting->add_flag("--json", request->json, "Print one line of JSON for each step");
    starting->callback([request, &status] { status = start(*request); });

    auto* approving = pair->add_subcommand("approve", "Let a new device in from this signed-in one");
    approving->footer(
        "Shows digits to compare, and hands the account's key over. The answer to the question is read "
        "from standard input.");
    approving->add_option("CODE", request->code, "The code on the new device")->required();
    approving->add_flag("--digits", request->typesDigits,
                        "Show no digits: read those of the new device and compare them here");
    approving->add_flag("--json", request->json, "Print one line of JSON for each step");
    approving->callback([request, &status] { status = approve(*request); });
}

} // namespace Korvane
