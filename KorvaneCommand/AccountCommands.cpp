#include "KorvaneCommand/AccountCommands.hpp"

#include "KorvaneCommand/AccountData.hpp"
#include "KorvaneCommand/Client.hpp"
#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/GivenSecret.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/SecretLine.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/SecretInput.hpp"

#include <cstdio>
#include <functional>
#include <memory>

namespace Korvane {

namespace {

using CommonOptions::addDescriptor;

struct AccountRequest {
    std::string email;
    std::optional<std::string> service;
    std::optional<std::string> inviteCode;
    std::optional<int> inviteCodeFD;
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

/// `sign-up`: the one time that the code is told.
struct SignedUp {
    std::string email;
    std::string userId;
    Device device;
    std::string service;
    SecretText recoveryCode;
};
BOOST_DESCRIBE_STRUCT(SignedUp, (), (email, userId, device, service, recoveryCode))

struct RecoveryCode {
    SecretText recoveryCode;
};
BOOST_DESCRIBE_STRUCT(RecoveryCode, (), (recoveryCode))

struct SignedOut {
    std::optional<std::string> signedOut; ///< the e-mail address, where it was still known
};
BOOST_DESCRIBE_STRUCT(SignedOut, (), (signedOut))

struct RevokedDevice {
    std::string id;
};
BOOST_DESCRIBE_STRUCT(RevokedDevice, (), (id))

/// A device on its way in: it is signed out, and no other process works for an account, or signs in, until
/// this one is done.
struct Entrance {
    explicit Entrance(const AccountRequest& request) : client(request.service), lock(claimed(client)) {}

    Client client;
    FileLock lock;

private:
    static FileLock claimed(Client& client) {
        client.run(client.account.requireSignedOut());
        return AccountData::claim();
    }
};

Identity identityOf(const Client& client) {
    const auto session = client.account.requiredSession();
    return {session.user.email, session.user.id, session.device,
            std::string(client.configuration.apiBaseURL.buffer())};
}

void print(const Identity& identity, const char* done) {
    std::printf("%s %s on \"%s\", at %s.\n", done, printable(identity.email).c_str(),
                printable(identity.device.name).c_str(), identity.service.c_str());
}

void report(const Client& client, const AccountRequest& request, const char* done) {
    if (request.json)
        std::puts(KRJSON::write(identityOf(client)).c_str());
    else
        print(identityOf(client), done);
}

void printRecoveryCode(const SecretText& code) {
    const auto text = code.text();
    std::printf(
        "Write down your recovery code. It opens the account when the password is lost, and it is not "
        "shown again:\n\n  %.*s\n",
        static_cast<int>(text.size()), text.data());
}

std::optional<std::string> invitation(const AccountRequest& request) {
    return request.inviteCodeFD ? std::optional(SecretInput::readLine(*request.inviteCodeFD))
                                : request.inviteCode;
}

int signUp(const AccountRequest& request) {
    Entrance entrance(request);
    auto& client = entrance.client;
    const auto password = chosenPassword(request.passwordFD); // the first line, where both come from one file
    const auto code = client.run(client.account.signUp(request.email, password, invitation(request)));
    const auto identity = identityOf(client);
    if (request.json) {
        putSecret(SignedUp{identity.email, identity.userId, identity.device, identity.service, code});
        return ExitCode::done;
    }
    print(identity, "Signed up as");
    printRecoveryCode(code);
    return ExitCode::done;
}

int signIn(const AccountRequest& request) {
    Entrance entrance(request);
    auto& client = entrance.client;
    client.run(client.account.signIn(request.email, givenSecret(request.passwordFD, "Password: ")));
    report(client, request, "Signed in as");
    return ExitCode::done;
}

/// Whether there is a sign-in to end, or a part of one.
bool hasSignIn(Client& client) {
    try {
        return client.run(client.account.restoreSession()) || client.run(client.api->hasTokens());
    } catch (const KeychainDamaged&) {
        return true; // signing out says so
    }
}

// What is left of the account goes even where the sign-in has ended before.
int signOut(const AccountRequest& request) {
    const auto lock = AccountData::claim();
    Client client;
    const bool wasSignedIn = hasSignIn(client);
    const auto session = client.account.session();
    client.run(client.account.signOut());
    AccountData::forget();
    if (!wasSignedIn)
        throw APIError(APIError::NotSignedIn{});
    if (request.json)
        std::puts(
            KRJSON::write(SignedOut{session ? std::optional(session->user.email) : std::nullopt}).c_str());
    else
        std::puts("Signed out.");
    return ExitCode::done;
}

int recover(const AccountRequest& request) {
    Entrance entrance(request);
    auto& client = entrance.client;
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
    if (request.json)
        std::puts(KRJSON::write(identityOf(client)).c_str());
    else
        std::puts("The password was changed.");
    return ExitCode::done;
}

int newRecoveryCode(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto code =
        client.run(client.account.rotateRecoveryKey(givenSecret(request.passwordFD, "Password: ")));
    if (request.json)
        putSecret(RecoveryCode{code});
    else
        printRecoveryCode(code);
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
        std::printf("%s  %-6s %s%s\n", printable(device.id).c_str(), printable(device.platform).c_str(),
                    printable(device.name).c_str(), device.current.value_or(false) ? "  (this device)" : "");
    return ExitCode::done;
}

int renameDevice(const AccountRequest& request) {
    Client client;
    client.requireSession();
    const auto device = client.run(client.api->updateDevice(request.device, request.name, std::nullopt));
    if (request.json)
        std::puts(KRJSON::write(device).c_str());
    else
        std::printf("%s is now called \"%s\".\n", printable(device.id).c_str(),
                    printable(device.name).c_str());
    return ExitCode::done;
}

int revokeDevice(const AccountRequest& request) {
    Client client;
    client.requireSession();
    client.run(client.api->revokeDevice(request.device));
    if (request.json)
        std::puts(KRJSON::write(RevokedDevice{request.device}).c_str());
    else
        std::printf("%s is signed out.\n", printable(request.device).c_str());
    return ExitCode::done;
}

/// Adds one command, with the request its options fill; all answer in JSON.
struct Adder {
    CLI::App& app;
    int& status;

    std::pair<CLI::App*, std::shared_ptr<AccountRequest>> add(CLI::App& parent, const std::string& name,
                                                              const std::string& about,
                                                              int (*act)(const AccountRequest&)) const {
        auto* command = parent.add_subcommand(name, about);
        const auto request = std::make_shared<AccountRequest>();
        CommonOptions::addJSON(*command, request->json);
        command->callback([request, act, &result = status] { result = act(*request); });
        return {command, request};
    }
};

void addEmail(CLI::App& command, AccountRequest& request) {
    command.add_option("EMAIL", request.email, "E-mail address of the account")->required();
    CommonOptions::addService(command, request.service, "URL of the service, from the sign-in on");
}

void addDevices(const Adder& adder) {
    auto* devices = adder.app.add_subcommand("devices", "Manage the devices");
    devices->require_subcommand(1);
    adder.add(*devices, "list", "List them", listDevices);
    const auto [rename, renaming] = adder.add(*devices, "rename", "Give one a new name", renameDevice);
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
    addDescriptor(*up, signingUp->passwordFD, "--password-fd", "password");
    auto* invited =
        up->add_option("--invite-code", signingUp->inviteCode, "Invitation, where the service asks for one")
            ->type_name("CODE");
    addDescriptor(*up, signingUp->inviteCodeFD, "--invite-code-fd", "invitation")->excludes(invited);

    const auto [in, signingIn] = adder.add(app, "sign-in", "Sign in on this device", signIn);
    addEmail(*in, *signingIn);
    addDescriptor(*in, signingIn->passwordFD, "--password-fd", "password");

    adder.add(app, "sign-out", "Sign out, forget keys", signOut);

    const auto [back, recovering] = adder.add(app, "recover", "Recover a lost password", recover);
    addEmail(*back, *recovering);
    addDescriptor(*back, recovering->codeFD, "--code-fd", "recovery code");
    addDescriptor(*back, recovering->newPasswordFD, "--new-password-fd", "new password");

    const auto [password, changing] = adder.add(app, "password", "Change the password", changePassword);
    addDescriptor(*password, changing->passwordFD, "--password-fd", "current password");
    addDescriptor(*password, changing->newPasswordFD, "--new-password-fd", "new password");

    const auto [code, rotating] = adder.add(app, "recovery-code", "Renew the recovery code", newRecoveryCode);
    addDescriptor(*code, rotating->passwordFD, "--password-fd", "password");

    adder.add(app, "whoami", "Tell who is signed in", whoami);
    addDevices(adder);
}

} // namespace Korvane
