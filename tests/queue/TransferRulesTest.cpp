// The queue's decisions, as tables.
#include "KorvaneCore/queue/TransferRules.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "KorvaneCore/queue/TransferQueue.hpp"
#include "KorvaneCore/storage/SQLiteError.hpp"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>
#include <gmock/gmock.h>

#include <cmath>
#include <random>

namespace Korvane::Testing {
namespace {

using namespace TransferRules;
using Verdict = RunFailure::Verdict;

template <class Error>
std::exception_ptr thrown(Error error) {
    return std::make_exception_ptr(std::move(error));
}

APIErrorInfo answer(int status, APIError error) {
    return {std::move(error), status, "code", "The server says no.", {}};
}

TEST(TransferRules, WhatARunThrowsDecidesWhetherItIsTriedAgain) {
    struct Row {
        std::exception_ptr error;
        Verdict verdict;
        std::string text;
    };

    const boost::system::system_error aborted(boost::asio::error::operation_aborted);
    const KRCrypto::KRCryptoError changed(KRCrypto::KRCryptoError::FileChangedDuringRead{});
    const KRCrypto::KRCryptoError damaged(KRCrypto::KRCryptoError::SizeMismatch{});
    const Row rows[] = {
        {thrown(TransferQueue::DropReason("gone")), Verdict::dropped, "gone"},
        {thrown(TransferQueue::PermanentFailure("no")), Verdict::failed, "no"},
        {thrown(TransferQueue::RetryLater(30)), Verdict::retry, "RetryLater(delay: 30)"},
        {thrown(APIError(APIError::Cancelled{})), Verdict::cancelled, APIError(APIError::Cancelled{}).what()},
        {thrown(aborted), Verdict::cancelled, aborted.what()},
        {thrown(APIError(APIError::Transport{"cut", true})), Verdict::retry,
         APIError(APIError::Transport{"cut", true}).what()},
        {thrown(APIError(APIError::Transport{"certificate", false})), Verdict::failed,
         APIError(APIError::Transport{"certificate", false}).what()},
        {thrown(answer(503, APIError::Server{503, "busy", "The server says no."})), Verdict::retry,
         answer(503, APIError::Server{503, "busy", "The server says no."}).what()},
        {thrown(APIError(APIError::Server{499, "odd", {}})), Verdict::failed,
         APIError(APIError::Server{499, "odd", {}}).what()},
        {thrown(answer(429, APIError::RateLimited{5})), Verdict::retry,
         answer(429, APIError::RateLimited{5}).what()},
        {thrown(APIError(APIError::NotFound{})), Verdict::failed, APIError(APIError::NotFound{}).what()},
        {thrown(changed), Verdict::retry, "File changed while it was being read"},
        {thrown(damaged), Verdict::failed, "Size mismatch"},
        {thrown(SQLiteError(5, "database is locked")), Verdict::retry,
         "The local index could not be used: database is locked"},
        {thrown(std::runtime_error("odd")), Verdict::failed, "odd"},
        {thrown(42), Verdict::failed, "int"},
    };
    for (const auto& row : rows) {
        const auto failure = runFailure(row.error, false);
        EXPECT_EQ(failure.verdict, row.verdict) << row.text;
        EXPECT_EQ(failure.text, row.text);
        // Whatever a cancelled run throws, it was the cancellation; but what is meaningless stays so.
        EXPECT_EQ(runFailure(row.error, true).verdict,
                  row.verdict == Verdict::dropped ? Verdict::dropped : Verdict::cancelled);
    }
}

TEST(TransferRules, BackOffStaysInItsBoundsForAnySeed) {
    const double ceilings[] = {4, 8, 16, 32, 64, 128, 256, 300, 300, 300};
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937_64 engine(seed);
        std::uniform_real_distribution<double> jitter;
        for (std::int64_t attempt = 1; attempt <= 10; ++attempt) {
            const double ceiling = ceilings[attempt - 1];
            const double delay = retryDelay({}, attempt, jitter(engine));
            EXPECT_GE(delay, 0.7 * ceiling) << "seed " << seed;
            EXPECT_LE(delay, ceiling) << "seed " << seed;
        }
    }
    EXPECT_DOUBLE_EQ(retryDelay({}, 1, 0), 2.8);
    EXPECT_DOUBLE_EQ(retryDelay({}, 1'000'000'000'000, 1), 300);
}

TEST(TransferRules, TheFailureMayAskForALongerOrAnExactDelay) {
    struct Row {
        std::exception_ptr error;
        double delay; ///< on the first attempt, without jitter
    };

    const Row rows[] = {
        {thrown(APIError(APIError::RateLimited{120})), 120},
        {thrown(APIError(APIError::RateLimited{1})), 4},
        {thrown(APIError(APIError::RateLimited{{}})), 4},
        {thrown(APIError(APIError::RateLimited{3600})), 3600},
        {thrown(TransferQueue::RetryLater(0.5)), 0.5},
        {thrown(TransferQueue::RetryLater(1000)), 1000},
        {thrown(TransferQueue::RetryLater(-5)), 0},
        {thrown(TransferQueue::RetryLater(NAN)), 0},
        {thrown(TransferQueue::RetryLater(1e300)), 10 * 365 * 86400.0},
    };
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(retryDelay(runFailure(row.error, false), 1, 1), row.delay);
}

TEST(TransferRules, TheWakeUpIsNeitherTooSoonNorTooLate) {
    using std::chrono::milliseconds;
    const TransferRecord::Date now{std::chrono::seconds(1'800'000'000)};
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, {}), 60);
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, now - std::chrono::hours(1)), 1);
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, now + milliseconds(2500)), 2.5);
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, now + std::chrono::hours(1)), 300);
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, TransferRecord::Date::max()), 300);
    EXPECT_DOUBLE_EQ(wakeUpDelay(now, TransferRecord::Date::min()), 1);
}

} // namespace
} // namespace Korvane::Testing
