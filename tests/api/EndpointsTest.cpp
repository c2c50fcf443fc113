#include "KorvaneCore/config/Text.hpp"
#include "tests/api/ClientFixture.hpp"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>

#include <fstream>

namespace Korvane {
namespace {

using Testing::jsonAnswer;
using Sent = Testing::ScriptedSession::Sent;

/// A record with every optional key present, so that a body shows all its keys.
template <class Record>
Record full() {
    Record record{};
    boost::mp11::mp_for_each<KRJSON::Detail::Members<Record>>([&](auto member) {
        auto& field = record.*member.pointer;
        if constexpr (KRJSON::Detail::isOptional<std::remove_reference_t<decltype(field)>>)
            field.emplace();
    });
    return record;
}

template <class Result>
asio::awaitable<void> ignoring(asio::awaitable<Result> operation) {
    (void)co_await std::move(operation);
}

struct Row {
    std::string operation, method, target, bodyKeys, flags, answer;
};

std::vector<Row> table() {
    std::ifstream file(KORVANE_SOURCE_DIR "/tests/api/endpoints.txt");
    std::vector<Row> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("#"))
            continue;
        std::vector<std::string> cells;
        boost::algorithm::split(cells, line, [](char c) { return c == '|'; });
        for (auto& cell : cells)
            cell = trimmed(cell);
        if (cells.size() != 6)
            throw std::runtime_error("not a row: " + line);
        rows.push_back({cells[0], cells[1], cells[2], cells[3], cells[4], cells[5]});
    }
    return rows;
}

class EndpointsTest : public Testing::ClientFixture {
protected:
    using Invoke = std::function<asio::awaitable<void>()>;

    /// Answers the refresh; every other call by `answer`.
    void answerCalls(HTTPResponse answer) {
        session_->sent.clear();
        session_->answer = [this, answer = std::move(answer)](const Sent& sent) {
            return sent.url.ends_with("/v1/auth/refresh") ? jsonAnswer(200, pairBody(token(600, "new"), "r"))
                                                          : answer;
        };
    }

    static std::string keysOf(const Sent& sent) {
        if (sent.body.empty())
            return "";
        if (sent.headers.at("Content-Type") != "application/json")
            return "bytes";
        std::vector<std::string> keys;
        const auto json = KRJSON::parse(sent.body);
        for (const auto& member : json.as_object())
            keys.emplace_back(member.key());
        return boost::algorithm::join(keys, ",");
    }

    const std::string id_ = "a/b c";
    const std::map<std::string, Invoke> operations_ = operations();

    std::map<std::string, Invoke> operations() {
        auto& c = client_;
        const auto date = KRJSON::parseDate("2026-11-21T10:45:07Z");
        return {
            {"authParams", [&] { return ignoring(c.authParams("a+b@c.d")); }},
            {"signup", [&] { return ignoring(c.signup(full<SignupRequest>())); }},
            {"login", [&] { return ignoring(c.login(full<LoginRequest>())); }},
            {"logout", [&] { return c.logout(); }},
            {"me", [&] { return ignoring(c.me()); }},
            {"recoveryBegin", [&] { return ignoring(c.recoveryBegin("e")); }},
            {"recoveryComplete", [&] { return ignoring(c.recoveryComplete({})); }},
            {"changePassword", [&] { return c.changePassword({}); }},
            {"deleteAccount", [&] { return c.deleteAccount(full<DeleteAccountRequest>()); }},
            {"rotateRecoveryKey", [&] { return c.rotateRecoveryKey(full<RotateRecoveryRequest>()); }},
            {"usage", [&] { return ignoring(c.usage()); }},
            {"ssoConfig", [&] { return ignoring(c.ssoConfig()); }},
            {"ssoLogin", [&] { return ignoring(c.ssoLogin(full<SSOLoginRequest>())); }},
            {"ssoSignup", [&] { return ignoring(c.ssoSignup(full<SSOSignupRequest>())); }},
            {"linkIdentity", [&] { return ignoring(c.linkIdentity({})); }},
            {"unlinkIdentity",
             [&] { return ignoring(c.unlinkIdentity(SSOProvider::apple, full<DeleteAccountRequest>())); }},
            {"recoveryWrappedKey", [&] { return ignoring(c.recoveryWrappedKey()); }},
            {"pairStart", [&] { return ignoring(c.pairStart({})); }},
            {"pairStartBound", [&] { return ignoring(c.pairStartBound({})); }},
            {"pairPoll", [&] { return ignoring(c.pairPoll(id_, "1+2", "poll secret")); }},
            {"pairPending", [&] { return ignoring(c.pairPending("1+2")); }},
            {"pairPendingAll", [&] { return ignoring(c.pairPending(std::nullopt)); }},
            {"pairApprove", [&] { return c.pairApprove({}); }},
            {"devices", [&] { return ignoring(c.devices()); }},
            {"revokeDevice", [&] { return c.revokeDevice(id_); }},
            {"updateDevice", [&] { return ignoring(c.updateDevice(id_, "n", "p")); }},
            {"folder", [&] { return ignoring(c.folder(id_)); }},
            {"children", [&] { return ignoring(c.children(id_, "x+y", 9)); }},
            {"createFolder", [&] { return ignoring(c.createFolder(full<CreateFolderRequest>())); }},
            {"updateFolder", [&] { return ignoring(c.updateFolder(id_, full<UpdateFolderRequest>())); }},
            {"deleteFolder", [&] { return ignoring(c.deleteFolder(id_)); }},
            {"restoreFolder", [&] { return ignoring(c.restoreFolder(id_)); }},
            {"file", [&] { return ignoring(c.file(id_)); }},
            {"createFile", [&] { return ignoring(c.createFile(full<CreateFileRequest>())); }},
            {"updateFile", [&] { return ignoring(c.updateFile(id_, full<UpdateFileRequest>())); }},
            {"deleteFile", [&] { return ignoring(c.deleteFile(id_)); }},
            {"restoreFile", [&] { return ignoring(c.restoreFile(id_)); }},
            {"versions", [&] { return ignoring(c.versions(id_)); }},
            {"restoreVersion", [&] { return ignoring(c.restoreVersion(id_, 3)); }},
            {"downloadInfo", [&] { return ignoring(c.downloadInfo(id_)); }},
            {"uploadThumbnail", [&] { return c.uploadThumbnail(id_, {1, 2}); }},
            {"thumbnail", [&] { return ignoring(c.thumbnail(id_)); }},
            {"trash", [&] { return ignoring(c.trash("x+y", 9)); }},
            {"restoreFromTrash", [&] { return ignoring(c.restoreFromTrash(id_)); }},
            {"deletePermanently", [&] { return c.deletePermanently(id_); }},
            {"emptyTrash", [&] { return c.emptyTrash(); }},
            {"createUpload", [&] { return ignoring(c.createUpload({})); }},
            {"uploadStatus", [&] { return ignoring(c.uploadStatus(id_)); }},
            {"completeUpload",
             [&] { return ignoring(c.completeUpload(id_, full<CompleteUploadRequest>())); }},
            {"abortUpload", [&] { return c.abortUpload(id_); }},
            {"changes", [&] { return ignoring(c.changes(7, 9)); }},
            {"createShare", [&] { return ignoring(c.createShare(full<CreateShareRequest>())); }},
            {"shares", [&] { return ignoring(c.shares()); }},
            {"share", [&] { return ignoring(c.share(id_)); }},
            {"updateShareEntries", [&] { return c.updateShareEntries(id_, {}, {"e"}); }},
            {"updateShare", [&c, id = id_, date] { return ignoring(c.updateShare(id, date)); }},
            {"revokeShare", [&] { return c.revokeShare(id_); }},
            {"publicShare", [&] { return ignoring(c.publicShare(id_)); }},
            {"publicShareDownload", [&] { return ignoring(c.publicShareDownload(id_, "d")); }},
        };
    }
};

/// The flags show in what they do: a token on the request, the type of the error, a refresh or none.
TEST_F(EndpointsTest, AreWhatTheTableSays) {
    const auto rows = table();
    ASSERT_EQ(rows.size(), operations_.size());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operation);
        get(client_.setTokens({token(600, "t"), "r"}));
        const auto& invoke = operations_.at(row.operation);

        answerCalls(jsonAnswer(200, "[]"));
        if (row.answer.empty())
            finish(start(invoke()));
        else
            EXPECT_EQ(failure(start(invoke())),
                      APIError(APIError::Decoding{row.answer + ": expected object, got array"}));
        ASSERT_EQ(session_->sent.size(), 1U);
        const auto& sent = session_->sent.front();
        EXPECT_EQ(sent.method, row.method);
        EXPECT_EQ(sent.url, "https://api.test/base" + row.target);
        EXPECT_EQ(keysOf(sent), row.bodyKeys);
        EXPECT_EQ(sent.headers.at("Accept"),
                  row.operation == "thumbnail" ? "application/octet-stream" : "application/json");
        EXPECT_EQ(sent.headers.contains("X-Pairing-Secret"), row.operation == "pairPoll");
        EXPECT_EQ(sent.headers.contains("Authorization"), row.flags[0] == '1');

        bool info = false;
        answerCalls(jsonAnswer(409, R"({"error":{"code":"name_conflict"}})"));
        EXPECT_EQ(failure(start(invoke()), &info), APIError(APIError::NameConflict{}));
        EXPECT_EQ(info, row.flags[1] == '1');

        answerCalls(jsonAnswer(401, R"({"error":{"code":"unauthorized","message":"wrong"}})"));
        (void)failure(start(invoke()));
        EXPECT_EQ(refreshes(), row.flags[0] == '1' && row.flags[2] == '0' ? 1U : 0U);
    }
}

} // namespace
} // namespace Korvane
