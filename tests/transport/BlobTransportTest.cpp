#include "KorvaneCore/api/ForegroundBlobTransport.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneCore/platform/MobileNetwork.hpp"
#include "tests/transport/TransportFixture.hpp"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>

#include <atomic>

namespace Korvane::Testing {
namespace {

using E = APIError;

enum class Form { foreground, background, fallback };

std::string nameOf(const testing::TestParamInfo<Form>& info) {
    constexpr std::array names{"Foreground", "Background", "Fallback"};
    return names.at(static_cast<std::size_t>(info.param));
}

/// What every form of the transport promises.
struct BlobTransportTest : TransportFixture, testing::TestWithParam<Form> {
    std::unique_ptr<BlobTransport> make() {
        constexpr std::chrono::seconds idle{1};
        if (GetParam() == Form::foreground) {
            CurlSession::Options options;
            options.idle = idle;
            return std::make_unique<ForegroundBlobTransport>(
                std::make_shared<APIClient>(context.get_executor(), service.configuration(),
                                            device.keychain(), std::make_shared<CurlSession>(options)));
        }
        BackgroundBlobTransport::Options options;
        options.requestTimeout = idle;
        if (GetParam() == Form::fallback)
            options.helper = "/bin/false";
        return std::make_unique<BackgroundBlobTransport>(identifier, true, options);
    }

    void TearDown() override {
        EXPECT_EQ(stagedFiles(), 0U);
        if (const auto* background = dynamic_cast<const BackgroundBlobTransport*>(transport.get())) {
            EXPECT_EQ(background->usingForegroundFallback(), GetParam() == Form::fallback);
        }
    }

    void putBoth() {
        for (const std::size_t part : {0U, 1U})
            device.run(transport->put(partURL(part), partBytes(part)));
    }

    asio::io_context context;
    std::unique_ptr<BlobTransport> transport = make();
};

INSTANTIATE_TEST_SUITE_P(All, BlobTransportTest,
                         testing::Values(Form::foreground, Form::background, Form::fallback), nameOf);

TEST_P(BlobTransportTest, PartsAndRangesArriveByteForByte) {
    putBoth();
    const auto url = complete();
    constexpr std::int64_t end = 2 * partSize;
    for (const auto range : {ByteRange{0, 1024}, ByteRange{0, 1}, ByteRange{partSize - 1, partSize + 1},
                             ByteRange{end - 1, end}, ByteRange{0, end}, ByteRange{7, 7}}) {
        const KRCrypto::Bytes expected(bytes.begin() + range.first, bytes.begin() + range.end);
        EXPECT_EQ(device.run(transport->get(url, range)), expected) << range.first;
        KRCrypto::Bytes kept(expected.size());
        device.run(transport->getInto(url, range.first, kept));
        EXPECT_EQ(kept, expected) << range.first;
    }
    EXPECT_TRUE(failure(transport->get(url, {5, 4})).is<E::BadRequest>());
    EXPECT_TRUE(failure(transport->get(url, {-1, 4})).is<E::BadRequest>());
    EXPECT_TRUE(failure(transport->get(url, {end - 4, end + 4})).isRetryable())
        << "fewer bytes than asked for";
}

TEST_P(BlobTransportTest, WhatGoesWrongWithAPartIsTheErrorOfTheClientAndPassesOn) {
    const std::vector<std::pair<Fault::Kind, APIError>> cases{
        {Fault::Answer{403, "<Error/>", {}}, E::Forbidden{}},
        {Fault::Answer{403, std::string(200'000, 'x'), {}}, E::Forbidden{}},
        {Fault::Answer{404, R"({"error":{"code":"expired"}})", {}}, E::Expired{}},
        {Fault::Answer{429, "", {{"Server", "caf\xe9"}, {"Retry-After", "7"}}}, E::RateLimited{7.0}},
        {Fault::Answer{429, "", {{"Retry-After", "caf\xe9"}}}, E::RateLimited{}},
        {Fault::Answer{307, "", {{"Location", partURL(1)}}}, E::Server{307, "http_307", std::nullopt}},
    };
    for (const auto& [fault, expected] : cases) {
        service->faults().add(putRoute, fault);
        EXPECT_EQ(failure(transport->put(partURL(0), partBytes(0))), expected);
    }
    for (const Fault::Kind& fault : {Fault::Kind(Fault::DropBefore{}), Fault::Kind(Fault::DropAfter{})}) {
        service->faults().add(putRoute, fault, 1, 2); // libcurl tries once more on a fresh connection
        EXPECT_TRUE(failure(transport->put(partURL(0), partBytes(0))).isRetryable());
        service->faults().clear();
    }
    service->faults().add(putRoute, Fault::Answer{200, std::string(200'000, 'x'), {}});
    device.run(transport->put(partURL(0), partBytes(0)));
}

TEST_P(BlobTransportTest, AnythingButTheRangeAskedForIsRetryable) {
    putBoth();
    const auto url = complete();
    const std::vector<Fault::Kind> faults{
        Fault::Answer{200, std::string(2 * partSize, 'x'), {}},
        Fault::Answer{200, std::string(1000, 'x'), {}}, // as long, but from the blob's start
        Fault::Answer{206, std::string(1001, 'x'), {}},
        Fault::Answer{206, std::string(999, 'x'), {}},
        Fault::Answer{204, "", {}},
        Fault::Truncate{500},
        Fault::Truncate{0},
    };
    for (const auto& fault : faults) {
        service->faults().add(getRoute, fault);
        KRCrypto::Bytes buffer(1000);
        EXPECT_TRUE(failure(transport->getInto(url, 100, buffer)).isRetryable());
        service->faults().clear();
    }
    EXPECT_EQ(device.run(transport->get(url, {100, 1100})).size(), 1000U);
    service->faults().add(getRoute, Fault::Answer{403, "<Error/>", {}});
    EXPECT_EQ(failure(transport->get(url, {100, 1100})), E::Forbidden{});
}

TEST_P(BlobTransportTest, StorageThatStallsIsGivenUpAsRetryable) {
    putBoth();
    const auto url = complete();
    service->faults().add(getRoute, Fault::Hold{});
    const auto error = failure(transport->get(url, {0, 1000}));
    EXPECT_TRUE(error.is<E::Transport>() && error.isRetryable()) << error.what();
}

TEST_P(BlobTransportTest, CancelledCallerIsTold) {
    service->faults().add(putRoute, Fault::Hold{});
    asio::cancellation_signal signal;
    std::exception_ptr thrown;
    asio::co_spawn(context, transport->put(partURL(0), partBytes(0)),
                   asio::bind_cancellation_slot(
                       signal.slot(), [&](std::exception_ptr error) { thrown = std::move(error); }));
    waitUntil([&] {
        context.poll();
        return service->faults().held() == 1;
    });
    signal.emit(asio::cancellation_type::terminal);
    context.run();
    try {
        std::rethrow_exception(thrown);
    } catch (const APIError& error) {
        EXPECT_EQ(error, E::Cancelled{});
    }
    service->faults().release();
    device.run(transport->put(partURL(0), partBytes(0)));
}

TEST_P(BlobTransportTest, EachOfHundredsOfCallersIsResumedOnce) {
    constexpr int callers = 300;
    putBoth();
    const auto url = complete();
    service->faults().add(getRoute, Fault::Answer{403, "", {}}, 1, 40);
    std::array<std::atomic<int>, callers> resumed{};
    std::atomic<int> refused = 0;
    asio::thread_pool pool(2);
    for (std::size_t caller = 0; caller < callers; ++caller)
        asio::co_spawn(
            asio::make_strand(pool),
            [&, caller]() -> asio::awaitable<void> {
                const auto first = static_cast<std::int64_t>(caller * 100);
                std::array<std::uint8_t, 100> piece{};
                co_await transport->getInto(url, first, piece);
                EXPECT_TRUE(std::ranges::equal(piece, KRCrypto::ByteView(bytes).subspan(caller * 100, 100)));
            },
            [&, caller](const std::exception_ptr& error) {
                ++resumed.at(caller);
                refused += error ? 1 : 0;
            });
    pool.join();
    EXPECT_TRUE(std::ranges::all_of(resumed, [](const auto& times) { return times == 1; }));
    EXPECT_EQ(refused, 40);
}

TEST(MobileNetwork, IsKnownByTheInterfaceOfALocalAddress) {
    const TemporaryFolder interfaces;
    EXPECT_FALSE(MobileNetwork::isUsedBy("127.0.0.1", interfaces.path()));
    std::filesystem::create_directory(interfaces / "lo");
    writeFile(interfaces / "lo/uevent", "DEVTYPE=wwan\nINTERFACE=lo\n");
    EXPECT_TRUE(MobileNetwork::isUsedBy("127.0.0.1", interfaces.path()));
    EXPECT_FALSE(MobileNetwork::isUsedBy("192.0.2.1", interfaces.path()));
}

} // namespace
} // namespace Korvane::Testing
