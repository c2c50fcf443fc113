#include "KorvaneCommand/ShareCommands.hpp"

#include "KorvaneCommand/ExitCode.hpp"
#include "KorvaneCommand/GivenSecret.hpp"
#include "KorvaneCommand/Printable.hpp"
#include "KorvaneCommand/SecretLine.hpp"
#include "KorvaneCommand/Workshop.hpp"
#include "KorvaneCommand/terminal/CommonOptions.hpp"
#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "KorvaneCore/platform/Bundle.hpp"
#include "KorvaneCore/platform/LocalCalendar.hpp"
#include "KorvaneCore/platform/SecretInput.hpp"
#include "KorvaneCore/sharing/ShareExpiry.hpp"
#include "KorvaneCore/sharing/ShareReader.hpp"
#include "KorvaneCore/sharing/ShareService.hpp"

#include <boost/describe/class.hpp>

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

namespace Korvane {

namespace {

constexpr std::chrono::milliseconds lastInstant{1}; ///< before an expiry: a day ends with it

namespace fs = std::filesystem;

constexpr int standardInput = 0;

/// In the place of a link.
constexpr const char* fromStandardInput = "-";

struct ShareRequest {
    std::string path;
    std::string id;
    std::string link;
    fs::path destination = ".";
    std::optional<std::string> service;
    std::optional<std::string> expires;
    std::optional<int> passwordFD;
    bool asksPassword = false;
    bool json = false;
};

struct CreatedReport {
    std::string id;
    SecretText link;
    std::optional<KRJSON::Date> expiresAt;
    std::int64_t entries = 0;
};
BOOST_DESCRIBE_STRUCT(CreatedReport, (), (id, link, expiresAt, entries))

struct ShareReport {
    std::string id;
    std::optional<std::string> name;
    std::string type;
    bool hasPassword = false;
    std::optional<KRJSON::Date> createdAt;
    std::optional<KRJSON::Date> expiresAt;
    bool isExpired = false;
    std::int64_t entries = 0;
    std::int64_t views = 0;
    std::int64_t downloads = 0;
    bool hasKey = false; ///< the key in its link is kept on this device
};
BOOST_DESCRIBE_STRUCT(ShareReport, (),
                      (id, name, type, hasPassword, createdAt, expiresAt, isExpired, entries, views,
                       downloads, hasKey))

struct OpenedReport {
    std::vector<std::string> files;   ///< those that were placed
    std::optional<std::string> error; ///< why there are no more
};
BOOST_DESCRIBE_STRUCT(OpenedReport, (), (files, error))

struct RevokedReport {
    std::string id;
};
BOOST_DESCRIBE_STRUCT(RevokedReport, (), (id))

ShareService shareServiceOf(const Workshop& workshop) {
    return {workshop.client.api, workshop.index, workshop.client.account.masterKey(),
            workshop.client.configuration};
}

void printLink(const SecretText& link) {
    std::printf("%.*s\n", static_cast<int>(link.text().size()), link.text().data());
}

/// When `--expires` ends a share that is made now.
KRJSON::Date expiry(const std::string& text) {
    return shareExpiry(text, systemClock()->now());
}

int create(const ShareRequest& request) {
    const auto expiresAt = request.expires ? std::optional(expiry(*request.expires)) : std::nullopt;
    Workshop workshop;
    workshop.client.run(workshop.pull());
    const auto item = workshop.itemAt(request.path);
    if (!item)
        throw std::runtime_error("\"" + printable(request.path) + "\" is not in the account");
    std::optional<SecretText> password;
    if (request.asksPassword || request.passwordFD)
        password = chosenPassword(request.passwordFD);
    auto service = shareServiceOf(workshop);
    const auto created = workshop.client.run(service.create(*item, password, expiresAt));
    const auto entries = created.share.entryCount.value_or(0);
    if (request.json) {
        putSecret(CreatedReport{created.share.id, created.link, expiresAt, entries});
        return ExitCode::done;
    }
    std::printf("\"%s\" is shared as it is now. Whoever has this link%s can open it:\n\n  ",
                printable(item->name).c_str(), password ? " and the password" : "");
    printLink(created.link);
    std::printf("\nIt is not shown again; `korvane share revoke %s` ends it.\n",
                printable(created.share.id).c_str());
    return ExitCode::done;
}

ShareReport reportOf(const ShareService::Listed& listed) {
    const auto& share = listed.share;
    ShareReport report;
    report.id = share.id;
    if (listed.item)
        report.name = listed.item->name;
    report.type = share.entityType;
    report.hasPassword = share.passwordSalt.has_value();
    report.createdAt = share.createdAt;
    report.expiresAt = share.expiresAt;
    report.isExpired = share.expiresAt && *share.expiresAt <= systemClock()->now();
    report.entries = share.entryCount.value_or(0);
    report.views = share.views.value_or(0);
    report.downloads = share.downloads.value_or(0);
    report.hasKey = listed.hasKey;
    return report;
}

void print(const ShareReport& report) {
    std::printf("%s  %-6s %s%s", printable(report.id).c_str(), printable(report.type).c_str(),
                report.name ? printable(*report.name).c_str() : "(not in the account)",
                report.hasPassword ? ", with a password" : "");
    if (report.expiresAt)
        std::printf(", %s %s", report.isExpired ? "expired on" : "until",
                    LocalCalendar::dayKey(*report.expiresAt - lastInstant).c_str());
    std::printf("; opened %lld times, %lld files fetched; %s\n", static_cast<long long>(report.views),
                static_cast<long long>(report.downloads),
                report.hasKey ? "its key is kept here" : "no key of it is kept here");
}

int list(const ShareRequest& request) {
    Workshop workshop;
    workshop.client.run(workshop.pullIfPossible());
    auto service = shareServiceOf(workshop);
    std::vector<ShareReport> reports;
    for (const auto& listed : workshop.client.run(service.list()))
        reports.push_back(reportOf(listed));
    if (request.json)
        std::puts(KRJSON::write(reports).c_str());
    else if (reports.empty())
        std::puts("Nothing is shared.");
    for (const auto& report : reports)
        if (!request.json)
            print(report);
    return ExitCode::done;
}

int revoke(const ShareRequest& request) {
    Workshop workshop;
    auto service = shareServiceOf(workshop);
    workshop.client.run(service.revoke(request.id));
    if (request.json)
        std::puts(KRJSON::write(RevokedReport{request.id}).c_str());
    else
        std::printf("%s is no longer shared.\n", printable(request.id).c_str());
    return ExitCode::done;
}

/// A link names the place of a web page, not of an API, and a stranger's link names any place: nothing is
/// sent anywhere the user did not configure or name.
KRConfiguration configurationFor(const ShareLink& link, const ShareRequest& request) {
    auto configuration = KRConfiguration::fromBundle(Bundle::main());
    const auto api =
        request.service ? KRConfiguration::parseBaseURL(*request.service) : link.apiBaseURL(configuration);
    if (!api)
        throw std::runtime_error("the link is of another service than this device's; name that one's API "
                                 "with --service");
    configuration.apiBaseURL = *api;
    return configuration;
}

ShareLink linkOf(const ShareRequest& request) {
    if (request.link != fromStandardInput)
        return ShareLink::parse(request.link);
    auto line = SecretInput::readLine(standardInput);
    const KRCrypto::WipedAtEnd wiped(line);
    return ShareLink::parse(line);
}

asio::awaitable<void> download(ShareReader& reader, const ShareRequest& request, OpenedReport& report) {
    return reader.download(request.destination, [&](const fs::path& file) {
        report.files.push_back(file.string());
        if (!request.json)
            std::puts(printable(file.string()).c_str());
    });
}

int open(const ShareRequest& request) {
    const auto link = linkOf(request);
    Client client(configurationFor(link, request));
    ShareReader reader(client.api, std::make_shared<ForegroundBlobTransport>(client.api), link);
    std::optional<SecretText> password;
    if (client.run(reader.load()) || request.passwordFD)
        password = givenSecret(request.passwordFD, "Password of the link: ");
    client.run(reader.open(password));
    OpenedReport report;
    std::exception_ptr failure;
    try {
        client.run(download(reader, request, report));
    } catch (const std::exception& error) {
        report.error = error.what();
        failure = std::current_exception();
    }
    if (request.json)
        std::puts(KRJSON::write(report).c_str());
    if (failure)
        std::rethrow_exception(failure);
    return ExitCode::done;
}

} // namespace

void addShareCommands(CLI::App& app, int& status) {
    auto* share = app.add_subcommand("share", "Share by link");
    share->footer("A link shows a file or folder to whoever has it, without an account.");
    share->require_subcommand(1);
    const auto request = std::make_shared<ShareRequest>();
    const auto add = [&](const char* name, const char* about, int (*act)(const ShareRequest&)) {
        auto* command = share->add_subcommand(name, about);
        CommonOptions::addJSON(*command, request->json);
        command->callback([request, act, &status] { status = act(*request); });
        return command;
    };

    auto* creating = add("create", "Share a file, or a folder with all in it, as it is now", create);
    creating->add_option("PATH", request->path, "Its path in the account")->required();
    creating->add_flag("--password", request->asksPassword, "Ask for a password that opens it too");
    CommonOptions::addDescriptor(*creating, request->passwordFD, "--password-fd", "password");
    creating
        ->add_option("--expires", request->expires,
                     "When it ends: 30m, 12h, 7d, 2w, the end of 2026-12-24, or an ISO-8601 time")
        ->check(CommonOptions::readable([](const std::string& text) { static_cast<void>(expiry(text)); }));

    add("list", "List what is shared; links are shown once only, when they are made", list);

    auto* revoking = add("revoke", "End a share; what was fetched already stays where it is", revoke);
    revoking->add_option("ID", request->id, "Its identifier")->required();

    auto* opening = add("open", "Fetch what a link leads to, without an account", open);
    opening->footer(
        "A link under this device's web address is asked of this device's service. For any other one, "
        "--service names the API: a link says where its web page is, not where its API is.");
    opening
        ->add_option(
            "URL", request->link,
            "The link, with the part after \"#\"; \"-\" reads it from standard input, out of sight of "
            "this computer's other users and of the shell's history")
        ->required()
        ->check(CommonOptions::readable([](const std::string& text) {
            if (text != fromStandardInput)
                static_cast<void>(ShareLink::parse(text));
        }));
    opening->add_option("DEST", request->destination, "Folder to put it in, made if missing (default: here)")
        ->type_name("DIR");
    CommonOptions::addService(*opening, request->service, "URL of the API that the link's service has");
    CommonOptions::addDescriptor(*opening, request->passwordFD, "--password-fd", "password");
}

} // namespace Korvane
