#include "KorvaneCore/api/ErrorMapping.hpp"

#include "KorvaneCore/api/AccountActionError.hpp"
#include "KorvaneCore/api/ErrorEnvelope.hpp"
#include "KorvaneCore/json/KRJSON.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <unicode/locid.h>

namespace Korvane {
namespace {

using E = APIError;

HTTPResponse answer(int status, std::string_view body, const char* retryAfter = nullptr) {
    HTTPResponse response{status, {}, KRCrypto::Bytes(body.begin(), body.end())};
    if (retryAfter != nullptr)
        response.headers.emplace_back("retry-after", retryAfter);
    return response;
}

RemoteFile file() {
    RemoteFile record;
    record.id = "f";
    record.folderId = "d";
    record.metaEnc = {1, 2, 3};
    record.blobId = "b";
    record.encryptedSize = 9'007'199'254'740'992;
    record.wrappedFileKey = {0xff};
    record.updatedAt = KRJSON::parseDate("2026-11-21T10:45:07.250Z");
    return record;
}

TEST(ErrorMapping, FollowsTheTable) {
    const auto conflict =
        R"({"error":{"code":"version_conflict","details":{"file":)" + KRJSON::write(file()) + "}}}";

    struct Row {
        int status;
        std::string body;
        E error;
        const char* retryAfter = nullptr;
    };

    const auto code = [](const std::string& name, const std::string& rest = "") {
        return R"({"error":{"code":")" + name + "\"" + rest + "}}";
    };
    const Row rows[] = {
        {418, code("bad_request", R"(,"message":"No")"), E::BadRequest{"No"}},
        {413, code("payload_too_large"), E::BadRequest{"payload_too_large"}},
        {409, code("invalid_part_layout"), E::BadRequest{"invalid_part_layout"}},
        {409, code("parts_missing", R"(,"details":{"missing":[1,2.5,"3",4]})"), E::PartsMissing{{1, 4}}},
        {409, code("parts_missing", R"(,"details":{"missing":"1"})"), E::PartsMissing{}},
        {409, code("parts_missing"), E::PartsMissing{}},
        {500, code("unauthorized"), E::Unauthorized{}},
        {500, code("forbidden"), E::Forbidden{}},
        {500, code("not_found", R"(,"details":{"reason":"folder_missing","folderId":"d","trashed":true})"),
         E::FolderMissing{"d", true}},
        {404, code("not_found", R"(,"details":{"reason":"folder_missing","folderId":7,"trashed":"yes"})"),
         E::FolderMissing{std::nullopt, false}},
        {404, code("not_found", R"(,"details":{"reason":"other"})"), E::NotFound{}},
        {500, code("not_found"), E::NotFound{}},
        {409, code("name_conflict"), E::NameConflict{}},
        {409, conflict, E::VersionConflict{file()}},
        {409, code("version_conflict", R"(,"details":{"file":{"id":"f"}})"), E::VersionConflict{}},
        {409, code("version_conflict"), E::VersionConflict{}},
        {507, code("quota_exceeded"), E::QuotaExceeded{}},
        {503, code("rate_limited"), E::RateLimited{7.5}, "7.5"},
        {503, code("rate_limited"), E::RateLimited{}},
        {429, code("transfer_limit_reached", R"(,"details":{"resetsAt":"2026-12-01T00:00:00Z"})"),
         E::TransferLimitReached{KRJSON::parseDate("2026-12-01T00:00:00Z")}},
        {429, code("transfer_limit_reached", R"(,"details":{"resetsAt":"soon"})"), E::TransferLimitReached{}},
        {500, code("expired"), E::Expired{}},
        {500, code("device_revoked"), E::DeviceRevoked{}},
        {404, "", E::NotFound{}},
        {410, "gone", E::Expired{}},
        {429, "{}", E::RateLimited{7}, "7"},
        {429, "{}", E::RateLimited{}, "Wed, 21 Oct 2026 07:28:00 GMT"},
        {429, "{}", E::RateLimited{}, "inf"},
        {429, "{}", E::RateLimited{}, "-7"},
        {400, code("", R"(,"message":"Why")"), E::BadRequest{"Why"}},
        {400, code("odd"), E::BadRequest{"odd"}},
        {401, "null", E::Unauthorized{}},
        {403, R"({"error":"forbidden"})", E::Forbidden{}},
        {500, "<html>", E::Server{500, "http_500", std::nullopt}},
        {302, "", E::Server{302, "http_302", std::nullopt}},
        {503, code("busy", R"(,"message":"Later")"), E::Server{503, "busy", "Later"}},
        {500, R"({"error":{"code":7,"message":["x"],"details":"y"}})",
         E::Server{500, "http_500", std::nullopt}},
        {500, std::string(1000, '['), E::Server{500, "http_500", std::nullopt}},
    };
    for (const auto& [status, body, error, retryAfter] : rows) {
        const auto info = ErrorMapping::errorInfo(answer(status, body, retryAfter));
        EXPECT_EQ(info.error, error) << status << " " << body << ": " << info.error.what();
        EXPECT_EQ(info.status, status);
    }
}

TEST(APIError, SaysWhatUsersRead) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getUS(), status);
    const Testing::ScopedEnvironment zone("TZ", "America/New_York");
    const std::pair<E, const char*> texts[] = {
        {E::BadRequest{"x"}, "Bad request: x"},
        {E::FolderMissing{"d", true}, "The destination folder is in the Trash"},
        {E::FolderMissing{}, "The destination folder no longer exists"},
        {E::VersionConflict{}, "The file was changed on another device"},
        {E::RateLimited{7}, "Too many requests — try again shortly"},
        {E::TransferLimitReached{KRJSON::parseDate("2026-12-01T03:00:00Z")},
         "This month's transfer allowance is used up. Shared links are paused until Nov 30, 2026."},
        {E::TransferLimitReached{},
         "This month's transfer allowance is used up. Shared links are paused until the allowance resets."},
        {E::PartsMissing{{1, 2, 3, 4, 5, 6, 7}}, "Upload incomplete (missing parts [1, 2, 3, 4, 5])"},
        {E::PartsMissing{}, "Upload incomplete (missing parts [])"},
        {E::Server{500, "http_500", std::nullopt}, "Server error 500 http_500"},
        {E::Server{503, "busy", "Later"}, "Server error 503 busy: Later"},
        {E::Transport{"no route", true}, "Network error: no route"},
        {E::Decoding{"User: id: is missing"}, "Unexpected server response: User: id: is missing"},
        {E::Unauthorized{}, "Not authorised. Please sign in again."},
        {E::Forbidden{}, "Forbidden"},
        {E::NotFound{}, "Not found"},
        {E::NameConflict{}, "An item with that name already exists"},
        {E::QuotaExceeded{}, "Storage full — delete files to free up space."},
        {E::Expired{}, "Expired"},
        {E::DeviceRevoked{}, "This device was revoked. Sign in again to continue."},
        {E::NotSignedIn{}, "Not signed in"},
        {E::Cancelled{}, "Cancelled"},
    };
    for (const auto& [error, text] : texts)
        EXPECT_STREQ(error.what(), text);
}

TEST(APIError, RetryAndSignInFollowFromTheCaseAlone) {
    const std::tuple<E, bool, bool> rows[] = {
        {E::RateLimited{}, true, false},         {E::Server{500, "", {}}, true, false},
        {E::Transport{"", true}, true, false},   {E::DeviceRevoked{}, false, true},
        {E::NotSignedIn{}, false, true},         {E::Server{499, "", {}}, false, false},
        {E::Transport{"", false}, false, false}, {E::Unauthorized{}, false, false},
        {E::Decoding{}, false, false},           {E::QuotaExceeded{}, false, false},
        {E::Cancelled{}, false, false},
    };
    for (const auto& [error, retries, ends] : rows) {
        EXPECT_EQ(error.isRetryable(), retries) << error.what();
        EXPECT_EQ(error.isAuthFatal(), ends) << error.what();
    }
}

TEST(APIErrorInfo, ShowsTheServersSentenceWhereItKnowsBetter) {
    const std::tuple<int, const char*, const char*, const char*> rows[] = {
        {409, "name_conflict", "  file exists", "File exists."},
        {409, "name_conflict", "élan!", "Élan!"},
        {409, "name_conflict", " \n", "An item with that name already exists"},
        {400, "bad_request", "too short?", "Too short?"},
        {413, "payload_too_large", "ßig", "SSig."},
        {409, "quota_exceeded", "full", "Storage full — delete files to free up space."},
        {404, "not_found", "no such folder", "Not found"},
        {500, "", "boom", "Server error 500 http_500: boom"},
    };
    for (const auto& [status, code, message, shown] : rows) {
        const ErrorEnvelope envelope{{code, message, std::nullopt}};
        const auto info = ErrorMapping::errorInfo(answer(status, KRJSON::write(envelope)));
        EXPECT_STREQ(info.what(), shown);
        EXPECT_EQ(apiError(info), &info.error);
    }
    const E bare = E::NotFound{};
    EXPECT_EQ(apiError(bare), &bare);
    EXPECT_EQ(apiError(std::runtime_error("")), nullptr);
    EXPECT_STREQ(AccountActionError(AccountActionError::Kind::wrongPassword, "Wrong.").what(), "Wrong.");
}

TEST(ErrorMapping, FailedRequestsAreRetriedUnlessTheServerIsNotWhoItSays) {
    using Kind = HTTPError::Kind;
    const std::pair<Kind, E> rows[] = {
        {Kind::connection, E::Transport{"why", true}},
        {Kind::timeout, E::Transport{"why", true}},
        {Kind::notHTTP, E::Transport{"no HTTP response", true}},
        {Kind::certificate, E::Transport{"why", false}},
        {Kind::malformed, E::Transport{"why", false}},
        {Kind::tooLarge, E::Decoding{"User: why"}},
    };
    for (const auto& [kind, error] : rows)
        EXPECT_EQ(ErrorMapping::sessionError(HTTPError(kind, "why"), "User"), error);
}

} // namespace
} // namespace Korvane
