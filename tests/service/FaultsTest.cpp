#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

#include <thread>

namespace Korvane::Testing {
namespace {

const KRCrypto::Bytes meta{1};

TEST(Faults, HappenToTheCallTheyArePlannedFor) {
    LocalService service;
    TestDevice device(service);
    const auto root = device.signUp("ann@example.org").user.rootFolderId;
    auto& faults = service->faults();
    const std::string route = "POST /v1/folders";
    const auto create = [&](const std::string& name) {
        return device.failure(device.api()->createFolder({{}, root, meta, name}));
    };
    const auto exists = [&](const std::string& name) {
        return create(name) == "An item with that name already exists";
    };
    // A request on a kept connection that ends without any answer is sent once more by libcurl.
    constexpr int sentTwice = 2;
    const std::tuple<const char*, Fault::Kind, int, bool> table[] = {
        {"answer", Fault::Answer{503, "no JSON", {}}, 1, false},
        {"drop before", Fault::DropBefore{}, sentTwice, false},
        {"drop after", Fault::DropAfter{}, sentTwice, true},
        {"truncate", Fault::Truncate{3}, 1, true},
        {"garbage", Fault::Garbage{"]["}, 1, true},
    };
    for (const auto& [name, fault, times, isDone] : table) {
        faults.add(route, fault, 2, times);
        EXPECT_EQ(create(std::string("before ") + name), "");
        EXPECT_NE(create(name), "") << name;
        EXPECT_EQ(exists(name), isDone) << name;
    }
    EXPECT_EQ(faults.calls(route), 17);
}

TEST(Faults, AHeldCallWaitsUntilItIsReleased) {
    LocalService service;
    TestDevice device(service);
    device.signUp("ann@example.org");
    service->faults().add("GET /v1/auth/me", Fault::Hold{});
    std::jthread releaser([&] {
        while (service->faults().held() == 0)
            std::this_thread::yield();
        service->faults().release();
    });
    EXPECT_EQ(device.failure(device.api()->me()), "");
}

TEST(Faults, AServiceEndsWithACallHeld) {
    std::unique_ptr<TestDevice> device;
    std::jthread caller;
    std::string sentence;
    {
        LocalService service;
        device = std::make_unique<TestDevice>(service);
        device->signUp("ann@example.org");
        service->faults().add("GET /v1/auth/me", Fault::Hold{});
        caller = std::jthread([&] { sentence = device->failure(device->api()->me()); });
        while (service->faults().held() == 0)
            std::this_thread::yield();
    }
    caller.join();
    EXPECT_TRUE(sentence.starts_with("Network error: ")) << sentence;
}

} // namespace
} // namespace Korvane::Testing
