#include "KorvaneCommand/AccountCommands.hpp"

#include "KorvaneCommand/AccountData.hpp"
#include "KorvaneCommand/Client.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/GivenSecret.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

struct AccountRequest {
    std::string email;
    std::optional<std::string> service;
    std::optional<std::string> inviteCode;
    std::optional<int> passwordFD;
    std::optional<int> newPasswordFD;
    std::optional<int> codeFD;
    std::string device;
    std::string name;
    bool json = false;
};

struct Identity {
    std::string email;
    std::string userId;
    Device device;
    std::string service;
};
BOOST_DESCRIBE_STRUCT(Identity, (), (email, userId, device, service))

void useService(const AccountRequest& request) {
    if (!request.service)
        return;
    if (!KRConfiguration::parseBaseURL(*request.service))
        throw std::invalid_argument("--service is no http or https URL");
    KRConfiguration::setOverrides(request.service, request.service);
}

void report(const Client& client, const AccountRequest& request, const char* done) {
    const auto session = client.account.requiredSession();
    const Identity identity{session.user.email, session.user.id, session.device,
                            std::string(client.configuration.apiBaseURL.buffer())};
    if (request.json)
        std::puts(KRJSON::write(identity).c_str());
    else
        std::printf("%s %s on \"%s\", at %s.\n", done, identity.email.c_str(), identity.device.name.c_str(),
                    identity.service.c_str());
}

void showRecoveryCode(const SecretText& code, bool json) {
    const auto text = code.text();
    if (json)
        std::printf("{\"recoveryCode\":\"%.*s\"}\n", static_cast<int>(text.size()), text.data());
    else
        std::printf(
            "Write down your recovery code. It opens the account when the password is lost, and it is not "
            "shown again:\n\n  %.*s\n",
            static_cast<int>(text.size()), text.data());
}

int signUp(const AccountRequest& request) {
    useService(request);
    Client client;
    const auto code = client.run(
        client.account.signUp(request.email, chosenPassword(request.passwordFD), request.inviteCode));
    if (!request.json)
        report(client, request, "Signed up as");
    showRecoveryCode(code, request.json);
    return ExitCode::done;
}

int signIn(const AccountRequest& request) {
    useService(request);
    Client client;
    client.run(client.account.signIn(request.email, givenSecret(request.passwordFD, "Password: ")));
    report(client, request, "Signed in as");
    return ExitCode::done;
}

// What is left of the account goes even where the sign-in has ended before.
int signOut(const AccountRequest&) {
    const auto lock = AccountData::claim();
    Client client;
    const bool wasSignedIn = client.run(client.account.restoreSession());
    if (wasSignedIn)
        client.run(client.account.signOut());
    AccountData::forget();
    if (!wasSignedIn)
        throw APIError(APIError::NotSignedIn{});
    std::puts("Signed out.");
    return ExitCode::done;
}

int recover(const AccountRequest& request) {
    useService(request);
    Client client;
    const auto code = givenSecret(request.codeFD, "Recovery code: ");
    client.run(client.account.recover(request.email, code, chosenPassword(request.newPasswordFD)));
    report(client, request, "Recovered, and signed in as");
    return ExitCode::done;
}

int changePassword(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto current = givenSecret(request.passwordFD, "Current password: ");
    client.run(client.account.changePassword(current, chosenPassword(request.newPasswordFD)));
    std::puts("The password was changed.");
    return ExitCode::done;
}

int newRecoveryCode(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto code =
        client.run(client.account.rotateRecoveryKey(givenSecret(request.passwordFD, "Password: ")));
    showRecoveryCode(code, request.json);
    return ExitCode::done;
}

int whoami(const AccountRequest& request) {
    Client client;
    client.requireSession();
    report(client, request, "Signed in as");
    return ExitCode::done;
}

int listDevices(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto devices = client.run(client.api->devices());
    if (request.json) {
        std::puts(KRJSON::write(devices).c_str());
        return ExitCode::done;
    }
    for (const auto& device : devices)
        std::printf("%s  %-6s %s%s\n", device.id.c_str(), device.platform.c_str(), device.name.c_str(),
                    device.current.value_or(false) ? "  (this device)" : "");
    return ExitCode::done;
}

int renameDevice(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto device = client.run(client.api->updateDevice(request.device, request.name, std::nullopt));
    if (request.json)
        std::puts(KRJSON::write(device).c_str());
    else
        std::printf("%s is now called \"%s\".\n", device.id.c_str(), device.name.c_str());
    return ExitCode::done;
}

int revokeDevice(const AccountRequest& request) {
    Client client;
    client.requireSession();
    client.run(client.api->revokeDevice(request.device));
    std::printf("%s is signed out.\n", request.device.c_str());
    return ExitCode::done;
}

/// Adds one command, with the request its options fill.
struct Adder {
    CLI::App& app;
    int& status;

    std::pair<CLI::App*, std::shared_ptr<AccountRequest>> add(CLI::App& parent, const std::string& name,
                                                              const std::string& about,
                                                              int (*act)(const AccountRequest&)) const {
        auto* command = parent.add_subcommand(name, about);
        const auto request = std::make_shared<AccountRequest>();
        command->callback([request, act, &result = status] { result = act(*request); });
        return {command, request};
    }
};

void addEmail(CLI::App& command, AccountRequest& request) {
    command.add_option("EMAIL", request.email, "E-mail address of the account")->required();
    command.add_option("--service", request.service, "URL of the service, from now on")->type_name("URL");
}

void addPassword(CLI::App& command, std::optional<int>& fd, const std::string& option,
                 const std::string& what) {
    command.add_option(option, fd, "Read the " + what + " from this file descriptor")
        ->check(CLI::NonNegativeNumber);
}

void addJSON(CLI::App& command, AccountRequest& request) {
    command.add_flag("--json", request.json, "Print one line of JSON");
}

void addDevices(const Adder& adder) {
    auto* devices = adder.app.add_subcommand("devices", "Manage the devices");
    devices->require_subcommand(1);
    const auto [list, listing] = adder.add(*devices, "list", "List them", listDevices);
    addJSON(*list, *listing);
    const auto [rename, renaming] = adder.add(*devices, "rename", "Give one a new name", renameDevice);
    addJSON(*rename, *renaming);
    rename->add_option("ID", renaming->device, "Its identifier")->required();
    rename->add_option("NAME", renaming->name, "Its new name")->required();
    const auto [revoke, revoking] = adder.add(*devices, "revoke", "Sign one out", revokeDevice);
    revoke->add_option("ID", revoking->device, "Its identifier")->required();
}

} // namespace

void addAccountCommands(CLI::App& app, int& status) {
    const Adder adder{app, status};
    const auto [up, signingUp] = adder.add(app, "sign-up", "Make an account", signUp);
    addEmail(*up, *signingUp);
    addPassword(*up, signingUp->passwordFD, "--password-fd", "password");
    up->add_option("--invite-code", signingUp->inviteCode, "Invitation, where the service asks for one")
        ->type_name("CODE");
    addJSON(*up, *signingUp);

    const auto [in, signingIn] = adder.add(app, "sign-in", "Sign in on this device", signIn);
    addEmail(*in, *signingIn);
    addPassword(*in, signingIn->passwordFD, "--password-fd", "password");
    addJSON(*in, *signingIn);

    adder.add(app, "sign-out", "Sign out, forget keys", signOut);

    const auto [back, recovering] = adder.add(app, "recover", "Recover a lost password", recover);
    addEmail(*back, *recovering);
    addPassword(*back, recovering->codeFD, "--code-fd", "recovery code");
    addPassword(*back, recovering->newPasswordFD, "--new-password-fd", "new password");
    addJSON(*back, *recovering);

    const auto [password, changing] = adder.add(app, "password", "Change the password", changePassword);
    addPassword(*password, changing->passwordFD, "--password-fd", "current password");
    addPassword(*password, changing->newPasswordFD, "--new-password-fd", "new password");

    const auto [code, rotating] = adder.add(app, "recovery-code", "Renew the recovery code", newRecoveryCode);
    addPassword(*code, rotating->passwordFD, "--password-fd", "password");
    addJSON(*code, *rotating);

    const auto [who, asking] = adder.add(app, "whoami", "Tell who is signed in", whoami);
    addJSON(*who, *asking);
    addDevices(adder);
}

} // namespace Korvane
