#include "KorvaneCore/http/CurlSession.hpp"
#include "KorvaneTransfers/TransferHelper.hpp"
#include "tests/transport/TransportFixture.hpp"

namespace Korvane::Testing {
namespace {

using namespace TransferMessages;

/// A helper in this process, and what it says to clients that do not keep to the rules.
struct TransferProtocolTest : testing::Test {
    const std::string identifier = "test.protocol";
    TemporaryContainer container;
    std::thread helper{[listening = std::make_shared<FileDescriptor>(
                            LocalSocket::listen(SessionFiles::socket(identifier)))] {
        TransferHelper({"test.protocol", std::chrono::seconds(1)}, std::move(*listening),
                       std::make_shared<CurlSession>())
            .run();
    }};

    void TearDown() override { helper.join(); }

    static TaskOrder order(std::int64_t task) {
        TaskOrder made;
        made.task = task;
        made.method = "PUT";
        made.url = "http://127.0.0.1:1/";
        made.file = "absent";
        made.idleSeconds = 5;
        return made;
    }
};

TEST_F(TransferProtocolTest, RefusesWhatItCannotTakeAndServesOn) {
    const std::vector<std::pair<std::string, std::string>> greetings{
        {R"({"hello":{"version":2}})", "version"},
        {R"({"collected":1})", "version"},
        {"{}", "version"},
        {R"({"hello":{"version":"1"}})", "malformed"},
        {"no JSON", "malformed"},
        {std::string(100'000, '['), "malformed"},
        {"", "malformed"},
        {std::string(MessageChannel::maxLength + 1, ' '), "tooLarge"},
    };
    for (const auto& [text, code] : greetings) {
        HelperPeer peer(identifier);
        peer.send(text);
        EXPECT_EQ(peer.receive().value().refused.value().code, code) << text.substr(0, 30);
        if (code != "malformed") {
            EXPECT_FALSE(peer.receive()) << "the helper hangs up";
        }
    }
    EXPECT_GT(HelperPeer(identifier).greet().firstTask, 0);
}

TEST_F(TransferProtocolTest, OrdersThatCannotBeCarriedOutEndWithAFailure) {
    const std::vector<std::pair<Failure::Kind, std::function<void(TaskOrder&)>>> cases{
        {Failure::Kind::file, [](TaskOrder&) {}},
        {Failure::Kind::malformed, [](TaskOrder& bad) { bad.file = "../part"; }},
        {Failure::Kind::malformed, [](TaskOrder& bad) { bad.file = ""; }},
        {Failure::Kind::malformed, [](TaskOrder& bad) { bad.idleSeconds = -1; }},
        {Failure::Kind::malformed,
         [](TaskOrder& bad) {
             bad.kind = TaskKind::download;
             bad.url = "file:///etc/passwd";
         }},
        {Failure::Kind::malformed,
         [](TaskOrder& bad) {
             bad.kind = TaskKind::download;
             bad.headers.push_back({"Range", "bytes=0-1\r\nX: y"});
         }},
        {Failure::Kind::connection, [](TaskOrder& bad) { bad.kind = TaskKind::download; }},
    };
    HelperPeer peer(identifier);
    auto task = peer.greet().firstTask;
    EXPECT_TRUE(peer.receive().value().eventsDelivered);
    for (const auto& [kind, spoil] : cases) {
        auto bad = order(task++);
        spoil(bad);
        FromClient message;
        message.start = bad;
        peer.send(message);
        const auto result = peer.receive().value().finished.value();
        EXPECT_EQ(result.task, bad.task);
        EXPECT_EQ(result.failure.value().kind, kind) << result.failure.value().message;
    }
    FromClient again;
    again.start = order(task - 1); // its result is not collected yet
    peer.send(again);
    EXPECT_EQ(peer.receive().value().finished.value().failure.value().message, "the task cannot be taken");
    const std::filesystem::directory_iterator staged(SharedContainer::cipherStaging());
    EXPECT_EQ(std::distance(begin(staged), end(staged)), 0);
}

} // namespace
} // namespace Korvane::Testing
