#include "tests/transport/TransportFixture.hpp"

namespace Korvane::Testing {
namespace {

/// The helper, its clients and what becomes of both.
struct TransferHelperTest : TransportFixture, testing::Test {
    std::filesystem::path source = container.path() / "part";

    void SetUp() override {
        std::filesystem::create_directories(container.path());
        writeFile(source, KRCrypto::asText(partBytes(0)));
    }

    std::vector<std::string> client(const std::string& mode) const {
        return {builtProgram("korvane-test-transfer").string(), mode, identifier, partURL(0),
                source.string()};
    }

    std::vector<std::string> foregroundHelper() const {
        return {builtProgram("korvane-transfers").string(),
                "--foreground",
                "--identifier",
                identifier,
                "--idle",
                "1"};
    }

    void waitForHeld(int calls) {
        waitUntil([&] { return service->faults().held() == calls; });
    }

    /// Opens the session anew, as a process that was started again does, and waits for all events.
    void comeBack() {
        BackgroundBlobTransport transport(identifier, true);
        std::promise<void> told;
        transport.setBackgroundCompletionHandler([&] { told.set_value(); }); // a second call would throw
        ASSERT_EQ(told.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
        device.run(transport.put(partURL(1), partBytes(1)));
        EXPECT_FALSE(transport.usingForegroundFallback());
        EXPECT_EQ(stagedFiles(), 0U) << "nobody waited for the earlier result";
    }
};

TEST_F(TransferHelperTest, StoppedClientsTransferCompletes) {
    service->faults().add(putRoute, Fault::Hold{});
    ChildProcess stopped(client("put"));
    waitForHeld(1);
    stopped.signal(SIGSTOP);
    service->faults().release();
    waitUntil([&] { return isUploaded(0); });
    stopped.signal(SIGCONT);
    EXPECT_EQ(stopped.readLine(), "done");
    EXPECT_EQ(stopped.wait(), 0);
    EXPECT_EQ(stagedFiles(), 0U);
}

TEST_F(TransferHelperTest, KilledClientsTransferCompletesAndTheNextOneIsToldOfIt) {
    service->faults().add(putRoute, Fault::Hold{});
    {
        ChildProcess killed(client("put"));
        waitForHeld(1);
    }
    const auto first = helper();
    service->faults().release();
    waitUntil([&] { return isUploaded(0); });
    comeBack();
    EXPECT_EQ(helper(), first);
}

TEST_F(TransferHelperTest, IdleHelperEndsAndLeavesUncollectedResultsToTheNext) {
    service->faults().add(putRoute, Fault::Hold{});
    ChildProcess idle(foregroundHelper());
    waitUntil([&] { return std::filesystem::exists(SessionFiles::socket(identifier)); });
    {
        ChildProcess killed(client("put"));
        waitForHeld(1);
    }
    service->faults().release();
    EXPECT_EQ(idle.wait(), 0);
    EXPECT_TRUE(isUploaded(0));
    EXPECT_FALSE(std::filesystem::exists(SessionFiles::socket(identifier)));
    EXPECT_EQ(stagedFiles(), 1U);
    comeBack();
    EXPECT_FALSE(std::filesystem::exists(SessionFiles::results(identifier)));
}

TEST_F(TransferHelperTest, KilledHelperFailsItsCallersAndAnotherServesTheNext) {
    BackgroundBlobTransport transport(identifier, true);
    service->faults().add(putRoute, Fault::Hold{}, 1, 2);
    asio::io_context context;
    std::vector<std::future<void>> puts;
    for (const std::size_t part : {0U, 1U})
        puts.push_back(
            asio::co_spawn(context, transport.put(partURL(part), partBytes(part)), asio::use_future));
    waitUntil([&] {
        context.poll();
        return service->faults().held() == 2;
    });
    const auto first = helper();
    killHelper();
    context.run();
    for (auto& put : puts) {
        try {
            put.get();
            ADD_FAILURE() << "the transfer cannot have ended well";
        } catch (const APIError& error) {
            EXPECT_EQ(error, (APIError::Transport{"the transfer helper ended", true}));
        }
    }
    EXPECT_EQ(stagedFiles(), 0U);
    EXPECT_TRUE(std::filesystem::exists(SessionFiles::socket(identifier))) << "the dead one's";
    device.run(transport.put(partURL(0), partBytes(0)));
    EXPECT_FALSE(transport.usingForegroundFallback());
    EXPECT_NE(helper(), first);
}

TEST_F(TransferHelperTest, CallersAreToldWhenTheirFilesHaveNoPlaceAnyMore) {
    BackgroundBlobTransport transport(identifier, true);
    const auto folder = SharedContainer::cipherStaging();
    for (const bool dies : {false, true}) {
        service->faults().add(putRoute, Fault::Hold{});
        asio::io_context context;
        auto put = asio::co_spawn(context, transport.put(partURL(0), partBytes(0)), asio::use_future);
        waitUntil([&] {
            context.poll();
            return service->faults().held() == 1;
        });
        std::filesystem::rename(folder, container.path() / "aside");
        writeFile(folder, "in the way");
        if (dies)
            killHelper();
        service->faults().release();
        context.run();
        if (dies)
            EXPECT_THROW(put.get(), APIError);
        else
            EXPECT_THROW(put.get(), FileError);
        std::filesystem::remove(folder);
        std::filesystem::remove_all(container.path() / "aside");
    }
}

TEST_F(TransferHelperTest, ClientsOfOneIdentifierDoNotDisturbEachOther) {
    auto leaving = std::make_unique<ChildProcess>(client("put"));
    EXPECT_EQ(leaving->readLine(), "done");
    service->faults().add(putRoute, Fault::Hold{}, 1, 2);
    leaving = std::make_unique<ChildProcess>(client("put"));
    BackgroundBlobTransport transport(identifier, true);
    asio::io_context context;
    auto put = asio::co_spawn(context, transport.put(partURL(1), partBytes(1)), asio::use_future);
    waitUntil([&] {
        context.poll();
        return service->faults().held() == 2;
    });
    leaving.reset(); // killed
    service->faults().release();
    context.run();
    EXPECT_NO_THROW(put.get());
}

TEST_F(TransferHelperTest, FullDiskWhileStagingFailsThePutWithTheFileError) {
    ChildProcess full(client("full"));
    EXPECT_EQ(full.readLine(), "file error: File too large");
    EXPECT_EQ(full.wait(), 0);
    EXPECT_EQ(stagedFiles(), 0U);
    EXPECT_EQ(service->faults().calls(putRoute), 0);
}

TEST_F(TransferHelperTest, FullDiskWhileDownloadingFailsTheGetWithTheFileError) {
    BackgroundBlobTransport transport(identifier, true);
    for (const std::size_t part : {0U, 1U})
        device.run(transport.put(partURL(part), partBytes(part)));
    const auto url = complete();
    killHelper();
    auto command = foregroundHelper();
    command.insert(command.begin(), {"/bin/sh", "-c", R"(ulimit -f 64; exec "$0" "$@")"});
    ChildProcess limited(command);
    waitUntil([&] { return runningHelper().has_value(); }); // not the killed one, which may be just ending
    try {
        (void)device.run(transport.get(url, {0, 2 * partSize}));
        ADD_FAILURE() << "there is no room";
    } catch (const FileError& error) {
        EXPECT_EQ(error.code(), std::errc::file_too_large);
    }
    EXPECT_EQ(stagedFiles(), 0U);
    EXPECT_EQ(device.run(transport.get(url, {0, 1000})).size(), 1000U);
}

TEST_F(TransferHelperTest, HelperThatDoesNotAnswerIsNotWaitedForLong) {
    const auto listening = LocalSocket::listen(SessionFiles::socket(identifier));
    BackgroundBlobTransport::Options options;
    options.patience = std::chrono::seconds(1);
    BackgroundBlobTransport transport(identifier, true, options);
    device.run(transport.put(partURL(0), partBytes(0)));
    EXPECT_TRUE(transport.usingForegroundFallback());
    std::filesystem::remove(SessionFiles::socket(identifier));
}

} // namespace
} // namespace Korvane::Testing
