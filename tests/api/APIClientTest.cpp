#include "KRCrypto/B64.hpp"
#include "KorvaneCore/api/JWT.hpp"
#include "tests/api/ClientFixture.hpp"
#include "tests/support/ChildProcess.hpp"

namespace Korvane {
namespace {

using namespace std::chrono_literals;
using E = APIError;
using Testing::jsonAnswer;
using Sent = Testing::ScriptedSession::Sent;

constexpr auto* meBody =
    R"({"user":{"id":"u","email":"e","rootFolderId":"r"},"device":{"id":"d","name":"n","platform":"web"}})";

bool isRefresh(const Sent& sent) {
    return sent.url.ends_with("/v1/auth/refresh");
}

class APIClientTest : public Testing::ClientFixture {
protected:
    /// Every refresh gives `fresh_`, every other call is answered by what follows.
    void answerCalls(std::function<HTTPResponse(const Sent&)> call) {
        session_->answer = [this, call = std::move(call)](const Sent& sent) {
            return isRefresh(sent) ? refreshAnswer_ : call(sent);
        };
    }

    void listen() {
        get(client_.setAuthFailureHandler([this](const E& error) { told_.push_back(error); }));
    }

    /// Keeps the refresh waiting for its answer until every call that was started waits too.
    void answerOnceAllWait() {
        session_->holds = isRefresh;
        driveUntil([&] { return session_->held() == 1; });
        while (context_.poll() > 0) {
        }
        session_->release();
    }

    std::string fresh_ = token(3600, "fresh");
    HTTPResponse refreshAnswer_ = jsonAnswer(200, pairBody(fresh_, "r2"));
    std::vector<E> told_;
};

TEST_F(APIClientTest, NothingIsSentWithoutTokens) {
    EXPECT_FALSE(get(client_.hasTokens()));
    EXPECT_EQ(failure(start(client_.me())), E::NotSignedIn{});
    EXPECT_TRUE(session_->sent.empty());
    get(client_.setTokens({token(60, "a"), "r"}));
    EXPECT_TRUE(get(client_.hasTokens()));
    EXPECT_EQ(storedAccessToken(), token(60, "a"));
    get(client_.clearTokens());
    EXPECT_FALSE(get(client_.hasTokens()));
    EXPECT_EQ(storedAccessToken(), "");
}

TEST_F(APIClientTest, TokensAreRefreshedThirtySecondsBeforeTheyExpire) {
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    const std::tuple<std::string, std::string, std::size_t> rows[] = {
        {token(31, "a"), token(31, "a"), 0},
        {token(30, "a"), token(30, "a"), 0},
        {token(29, "a"), fresh_, 1},
        {token(-9, "a"), fresh_, 1},
        {"opaque", "opaque", 0},
        {"a.!.c", "a.!.c", 0},
        {"e30.e30.x", "e30.e30.x", 0},
    };
    for (const auto& [stored, sent, refreshed] : rows) {
        get(client_.setTokens({stored, "r1"}));
        session_->sent.clear();
        EXPECT_EQ(get(client_.me()).user.id, "u");
        EXPECT_EQ(session_->sent.back().headers.at("Authorization"), "Bearer " + sent);
        EXPECT_EQ(refreshes(), refreshed) << stored;
    }
    get(client_.setTokens({token(31, "a"), "r1"}));
    clock_->advance(2s);
    session_->sent.clear();
    get(client_.me());
    ASSERT_EQ(refreshes(), 1U);
    const auto& refresh = session_->sent.front();
    EXPECT_EQ(refresh.url, "https://api.test/base/v1/auth/refresh");
    EXPECT_EQ(refresh.body, R"({"refreshToken":"r1"})");
    EXPECT_EQ(refresh.headers, (std::map<std::string, std::string>{{"Accept", "application/json"},
                                                                   {"Content-Type", "application/json"}}));
    EXPECT_EQ(storedAccessToken(), fresh_);
}

/// First answer × second answer × credentialCheck: R ends the device, T is about the token, P is about a
/// proof.
TEST_F(APIClientTest, FollowsTheRoadOfA401) {
    const auto refusal = [](const std::string& code, const std::string& rest = "", int status = 401) {
        return jsonAnswer(status, R"({"error":{"code":")" + code + "\"" + rest + "}}");
    };
    const std::map<std::string, HTTPResponse> answers{
        {"ok", jsonAnswer(200, meBody)},
        {"R", refusal("device_revoked")},
        {"T reason", refusal("unauthorized", R"(,"message":"no","details":{"reason":"token_expired"})")},
        {"T invalid", refusal("unauthorized", R"(,"details":{"reason":"invalid_token"})")},
        {"T message", refusal("unauthorized", R"(,"message":"unknown device","details":{"reason":7})")},
        {"T none", jsonAnswer(401, "")},
        {"P message", refusal("unauthorized", R"(,"message":"Unknown device")")},
        {"P reason", refusal("unauthorized", R"(,"message":"unknown device","details":{"reason":"proof"})")},
        {"P forbidden", refusal("forbidden", R"(,"message":"no")")},
        {"403 R", refusal("device_revoked", "", 403)},
        {"500", jsonAnswer(500, "")},
    };
    const E down = E::Server{500, "http_500", std::nullopt};

    struct Row {
        const char* first;
        const char* second;
        bool credentialCheck;
        std::optional<E> error;
        bool asInfo = false;
        std::vector<E> told = {}; // NOLINT(readability-redundant-member-init): rows may leave it out
    };

    const std::vector<E> revoked{E::DeviceRevoked{}};
    const Row rows[] = {
        {"ok", nullptr, false, {}},
        {"500", nullptr, false, down},
        {"403 R", nullptr, false, E::DeviceRevoked{}, false, revoked},
        {"403 R", nullptr, true, E::DeviceRevoked{}, false, revoked},
        {"R", nullptr, false, E::DeviceRevoked{}, false, revoked},
        {"R", nullptr, true, E::DeviceRevoked{}, false, revoked},
        {"T reason", "ok", false, {}},
        {"T reason", "ok", true, {}},
        {"T invalid", "ok", true, {}},
        {"T message", "ok", true, {}},
        {"T none", "ok", true, {}},
        {"P message", "ok", false, {}},
        {"P reason", "ok", false, {}},
        {"P message", nullptr, true, E::Unauthorized{}, true},
        {"P reason", nullptr, true, E::Unauthorized{}, true},
        {"P forbidden", nullptr, true, E::Forbidden{}, true},
        {"T reason", "T none", false, E::DeviceRevoked{}, false, revoked},
        {"T reason", "T none", true, E::DeviceRevoked{}, false, revoked},
        {"T reason", "P message", false, E::DeviceRevoked{}, false, revoked},
        {"T reason", "P message", true, E::Unauthorized{}, true},
        {"T reason", "R", false, E::DeviceRevoked{}, false, revoked},
        {"T reason", "R", true, E::DeviceRevoked{}, false, revoked},
        {"T reason", "403 R", true, E::DeviceRevoked{}, false, revoked},
        {"T reason", "P forbidden", false, E::Forbidden{}},
        {"T reason", "500", true, down},
    };
    listen();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.first) + (row.second ? row.second : "") +
                     (row.credentialCheck ? " proof" : ""));
        get(client_.setTokens({token(600, "old"), "r1"}));
        session_->sent.clear();
        told_.clear();
        std::vector<std::string> bearers;
        answerCalls([&](const Sent& sent) {
            bearers.push_back(sent.headers.at("Authorization"));
            return answers.at(bearers.size() == 1 ? row.first : row.second);
        });
        auto call = row.credentialCheck ? start(client_.changePassword({}))
                                        : start([](APIClient& client) -> asio::awaitable<void> {
                                              (void)co_await client.me();
                                          }(client_));
        bool asInfo = false;
        if (row.error)
            EXPECT_EQ(failure(std::move(call), &asInfo), *row.error);
        else
            finish(std::move(call));
        EXPECT_EQ(asInfo, row.asInfo);
        EXPECT_EQ(told_, row.told);
        EXPECT_EQ(refreshes(), row.second == nullptr ? 0U : 1U);
        ASSERT_EQ(bearers.size(), row.second == nullptr ? 1U : 2U);
        EXPECT_EQ(bearers.back(), "Bearer " + (row.second == nullptr ? token(600, "old") : fresh_));
    }
}

TEST_F(APIClientTest, ARefusedRefreshEndsTheSignInAndOtherFailuresDoNot) {
    const std::tuple<HTTPResponse, E, bool> rows[] = {
        {jsonAnswer(401, ""), E::DeviceRevoked{}, true},
        {jsonAnswer(403, R"({"error":{"code":"device_revoked"}})"), E::DeviceRevoked{}, true},
        {jsonAnswer(403, R"({"error":{"code":"unauthorized"}})"), E::Unauthorized{}, true},
        {jsonAnswer(429, ""), E::RateLimited{}, false},
        {jsonAnswer(200, R"({"accessToken":"a"})"), E::Decoding{"TokenPair: refreshToken: is missing"},
         false},
        {jsonAnswer(200, R"({"accessToken":"","refreshToken":"r"})"),
         E::Decoding{"TokenPair: an empty token"}, false},
        {jsonAnswer(200, "<html>"), E::Decoding{"TokenPair: not JSON: syntax error"}, false},
    };
    listen();
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    for (const auto& [answer, error, ends] : rows) {
        get(client_.setTokens({token(0, "old"), "r1"}));
        refreshAnswer_ = answer;
        told_.clear();
        auto first = start(client_.me());
        auto second = start(client_.usage());
        answerOnceAllWait();
        EXPECT_EQ(failure(std::move(first)), error);
        EXPECT_EQ(failure(std::move(second)), error);
        EXPECT_EQ(told_, ends ? std::vector<E>{error} : std::vector<E>{}) << "once, however many wait";
        EXPECT_EQ(storedAccessToken(), token(0, "old")) << "what to clear is the listener's decision";
    }
}

TEST_F(APIClientTest, CallersThatFindTheTokenStaleShareOneRefresh) {
    store(token(0, "old"), "r1");
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    std::vector<std::future<MeResponse>> calls;
    for (int i = 0; i < 5; ++i)
        calls.push_back(start(client_.me()));
    answerOnceAllWait();
    for (auto& call : calls)
        EXPECT_EQ(finish(std::move(call)).user.id, "u");
    EXPECT_EQ(refreshes(), 1U);
}

TEST_F(APIClientTest, APairThatAnotherProcessStoredIsAdopted) {
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    const std::pair<std::string, std::size_t> rows[] = {
        {token(600, "theirs"), 0}, {"opaque", 0}, {token(5, "theirs"), 1}};
    for (const auto& [stored, refreshed] : rows) {
        get(client_.setTokens({token(0, "mine"), "r1"}));
        store(stored, "r9");
        session_->sent.clear();
        EXPECT_EQ(get(client_.currentAccessToken()).text(), refreshed == 0 ? stored : fresh_);
        EXPECT_EQ(refreshes(), refreshed);
        if (refreshed == 1)
            EXPECT_EQ(session_->sent.front().body, R"({"refreshToken":"r9"})");
    }

    // One that appears while the server refuses the old token: it was refreshed without the lock.
    listen();
    get(client_.setTokens({token(0, "mine"), "r1"}));
    session_->answer = [this](const Sent&) {
        store(token(600, "theirs"), "r9");
        return jsonAnswer(401, "");
    };
    EXPECT_EQ(get(client_.currentAccessToken()).text(), token(600, "theirs"));
    EXPECT_TRUE(told_.empty());
}

TEST_F(APIClientTest, NewTokensTheKeychainDidNotTakeAreStoredLater) {
    get(client_.setTokens({token(0, "old"), "r1"}));
    const auto file = folder_ / "keychain.json";
    session_->answer = [&](const Sent&) {
        std::filesystem::rename(file, folder_ / "aside");
        std::filesystem::create_directory(file); // no file can take its place
        return jsonAnswer(200, pairBody(token(60, "second"), "r2"));
    };
    EXPECT_EQ(get(client_.currentAccessToken()).text(), token(60, "second"));
    std::filesystem::remove(file);
    std::filesystem::rename(folder_ / "aside", file);
    ASSERT_EQ(storedAccessToken(), token(0, "old"));

    clock_->advance(31s);
    answerCalls({});
    EXPECT_EQ(get(client_.currentAccessToken()).text(), fresh_);
    EXPECT_EQ(session_->sent.back().body, R"({"refreshToken":"r2"})") << "not the one that is used up";
}

TEST_F(APIClientTest, ARefreshBringsNothingBackAfterSigningOutOrInAgain) {
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    listen();
    const auto theirs = token(600, "theirs");
    const std::tuple<HTTPResponse, bool, std::string> rows[] = {
        {refreshAnswer_, false, ""},
        {refreshAnswer_, true, theirs},
        {jsonAnswer(401, ""), true, theirs},
    };
    for (const auto& [answer, signsIn, stored] : rows) {
        get(client_.setTokens({token(0, "mine"), "r1"}));
        refreshAnswer_ = answer;
        session_->holds = isRefresh;
        auto call = start(client_.me());
        driveUntil([&] { return session_->held() == 1; });
        const auto change = [&, in = signsIn] {
            return in ? client_.setTokens({theirs, "r9"}) : client_.clearTokens();
        };
        asio::cancellation_signal signal;
        auto cancelled =
            asio::co_spawn(context_, change(), asio::bind_cancellation_slot(signal.slot(), asio::use_future));
        driveUntil([&] { return clock_->sleepers() == 1; });
        signal.emit(asio::cancellation_type::terminal);
        EXPECT_EQ(failure(std::move(cancelled)), E::Cancelled{});

        auto changed = start(change());
        driveUntil([&] { return clock_->sleepers() == 1; });
        clock_->advance(21s); // as long as the refresh has the lock
        finish(std::move(changed));
        session_->release();
        EXPECT_EQ(failure(std::move(call)), E::NotSignedIn{});
        EXPECT_EQ(storedAccessToken(), stored);
        EXPECT_EQ(get(client_.hasTokens()), signsIn);
        EXPECT_TRUE(told_.empty()) << "the sign-in it was about has ended";
    }
}

enum class Wait { lock, refresh, answer };

class CancellationTest : public APIClientTest, public testing::WithParamInterface<Wait> {};

TEST_P(CancellationTest, TheCallerIsFreeAtOnceAndARefreshGoesOn) {
    store(token(GetParam() == Wait::answer ? 600 : 0, "old"), "r1");
    answerCalls([](const Sent&) { return jsonAnswer(200, meBody); });
    session_->holds = [](const Sent& sent) { return isRefresh(sent) || GetParam() == Wait::answer; };
    std::optional<Testing::ChildProcess> holder;
    if (GetParam() == Wait::lock) {
        holder.emplace(std::vector{Testing::builtProgram("korvane-test-peer").string(),
                                   std::string("hold-lock"), std::string("token-refresh")});
        ASSERT_EQ(holder->readLine(), "held");
    }
    asio::cancellation_signal signal;
    auto cancelled =
        asio::co_spawn(context_, client_.me(), asio::bind_cancellation_slot(signal.slot(), asio::use_future));
    auto patient = start(client_.me());
    const std::size_t waiting = GetParam() == Wait::answer ? 2 : 1;
    driveUntil([&] { return (GetParam() == Wait::lock ? clock_->sleepers() : session_->held()) == waiting; });
    while (context_.poll() > 0) {
    }
    signal.emit(asio::cancellation_type::terminal);
    EXPECT_EQ(failure(std::move(cancelled)), E::Cancelled{});

    holder.reset();
    clock_->advance(100ms);
    session_->release();
    EXPECT_EQ(finish(std::move(patient)).user.id, "u");
    EXPECT_EQ(refreshes(), GetParam() == Wait::answer ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(Waits, CancellationTest, testing::Values(Wait::lock, Wait::refresh, Wait::answer));

TEST_F(APIClientTest, BadAnswersNameRecordAndKey) {
    store(token(600, "t"), "r");
    const std::pair<std::string, std::string> rows[] = {
        {"", "MeResponse: not JSON: incomplete JSON"},
        {"[]", "MeResponse: expected object, got array"},
        {R"({"user":null,"device":{}})", "MeResponse: user: expected object, got null"},
        {R"({"user":{"id":"u","email":5,"rootFolderId":"r"},"device":{}})",
         "MeResponse: user.email: expected string, got number"},
        {R"({"user":{"id":"u","email":"e"},"device":{}})", "MeResponse: user.rootFolderId: is missing"},
        {R"({"user":{"id":"u","email":"e","rootFolderId":"r","quotaBytes":1e30},"device":{}})",
         "MeResponse: user.quotaBytes: expected integer in range, got number"},
        {R"({"user":{"id":"u","email":"e","rootFolderId":"r","createdAt":"1 May"},"device":{}})",
         "MeResponse: user.createdAt: Invalid ISO-8601 date 1 May"},
        {R"({"user":{"id":"u","email":"e","rootFolderId":"r","identities":["a",{}]},"device":{}})",
         "MeResponse: user.identities[1]: expected string, got object"},
    };
    for (const auto& [body, message] : rows) {
        answerCalls([&body](const Sent&) { return jsonAnswer(200, body); });
        EXPECT_EQ(failure(start(client_.me())), E::Decoding{message});
    }
}

TEST_F(APIClientTest, UnknownChangesDoNotFailThePage) {
    store(token(600, "t"), "r");
    answerCalls([](const Sent&) {
        return jsonAnswer(200, R"({"changes":[
            {"seq":1,"entityType":"comet","entityId":"c","op":"land","entity":{"id":"c"}},
            {"seq":2,"entityType":"file","entityId":"f","op":"delete","entity":{"id":"f"}},
            {"seq":3,"entityType":"folder","entityId":"d","op":"move","entity":{"id":"d","parentId":"p"}},
            {"seq":4,"entityType":"device","entityId":"e","op":"create","entity":null}],"latestSeq":4,"hasMore":false})");
    });
    const auto page = get(client_.changes(0, 10));
    ASSERT_EQ(page.changes.size(), 4U);
    EXPECT_EQ(page.changes[0].entityType, EntityType::unknown);
    EXPECT_EQ(page.changes[0].op, ChangeOp::unknown);
    EXPECT_EQ(page.changes[0].entity, ChangeEntity(OtherEntity{}));
    EXPECT_EQ(page.changes[1].op, ChangeOp::remove);
    EXPECT_EQ(page.changes[1].entity, ChangeEntity(OtherEntity{})) << "no record of its type";
    EXPECT_EQ(std::get<RemoteFolder>(*page.changes[2].entity).parentId, "p");
    EXPECT_EQ(page.changes[3].entity, std::nullopt);
}

TEST_F(APIClientTest, AllChildrenFollowsTheCursorsButInNoCircle) {
    store(token(600, "t"), "r");
    answerCalls([this](const Sent& sent) {
        EXPECT_EQ(sent.url, session_->sent.size() == 1
                                ? "https://api.test/base/v1/folders/d/children?limit=500"
                                : "https://api.test/base/v1/folders/d/children?cursor=a%2Bb&limit=500");
        return jsonAnswer(200, session_->sent.size() == 1
                                   ? R"({"folders":[{"id":"1"}],"files":[],"nextCursor":"a+b"})"
                                   : R"({"folders":[{"id":"2"}],"files":[]})");
    });
    const auto all = get(client_.allChildren("d"));
    EXPECT_EQ(all.folders.size(), 2U);
    EXPECT_EQ(all.nextCursor, std::nullopt);

    answerCalls([](const Sent&) { return jsonAnswer(200, R"({"folders":[],"files":[],"nextCursor":"a"})"); });
    EXPECT_EQ(failure(start(client_.allChildren("d"))),
              E::Decoding{"ChildrenPage: nextCursor: leads in a circle"});
}

TEST_F(APIClientTest, AnEmptyIdentifierNeverReachesTheWholeTrash) {
    store(token(600, "t"), "r");
    for (const auto* id : {"", ".", ".."})
        EXPECT_THROW((void)client_.deletePermanently(id), APIError);
    EXPECT_TRUE(session_->sent.empty());
}

TEST_F(APIClientTest, StorageServersGetNoTokenAndHaveNoSay) {
    store(token(600, "t"), "r");
    const KRCrypto::Bytes part{1, 2, 3};
    session_->answer = [](const Sent&) { return jsonAnswer(201, "<ok/>"); };
    EXPECT_EQ(get(client_.putPart("https://store.test/p?sig=1", part)), PartUploadResponse{});
    EXPECT_EQ(session_->sent.back().headers,
              (std::map<std::string, std::string>{{"Content-Type", "application/octet-stream"}}));
    session_->answer = [](const Sent&) { return jsonAnswer(200, R"({"partNumber":1,"etag":"e"})"); };
    EXPECT_EQ(get(client_.putPart("https://store.test/p", part)), (PartUploadResponse{1, "e"}));

    session_->answer = [](const Sent&) { return jsonAnswer(206, "abc"); };
    (void)get(client_.getRange("https://store.test/b", {0, 3}));
    EXPECT_EQ(session_->sent.back().headers, (std::map<std::string, std::string>{{"Range", "bytes=0-2"}}));
    listen();
    session_->answer = [](const Sent&) { return jsonAnswer(403, R"({"error":{"code":"device_revoked"}})"); };
    bool info = false;
    EXPECT_EQ(failure(start(client_.getRange("https://store.test/b", {0, 2})), &info), E::DeviceRevoked{});
    EXPECT_TRUE(info);
    EXPECT_TRUE(told_.empty()) << "a storage server has no say about the sign-in";
}

TEST(JWT, ReadsClaimsAndSurvivesWhatIsNoToken) {
    const auto token = [](std::string_view claims) {
        return "x." + KRCrypto::base64URLString(KRCrypto::asBytes(claims)) + ".y";
    };
    EXPECT_EQ(JWT::stringClaim("sub", token(R"({"sub":"ü?>","exp":1.5})")), "ü?>");
    EXPECT_EQ(JWT::expiry(token(R"({"exp":1.5})")), 1.5);
    EXPECT_EQ(JWT::expiry("x." + KRCrypto::B64::encode(KRCrypto::asBytes(R"({"exp":12})"))), 12)
        << "two segments, padded";
    for (const auto& bad :
         {std::string(), std::string("e30"), std::string("."), std::string(".."), std::string("a.b"),
          std::string("a. .c"), token("[]"), token("7"), token("{\"exp\":\"1\"}"), token("{}"),
          token(std::string(100, '[')), token("\xff")})
        EXPECT_EQ(JWT::expiry(bad), std::nullopt) << bad;
}

} // namespace
} // namespace Korvane
