#include "KorvaneCore/api/records/Changes.hpp"
#include "KorvaneCore/http/CurlSession.hpp"
#include "tests/support/LoopbackServer.hpp"

#include <benchmark/benchmark.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/parse.hpp>
#include <curl/curl.h>

#include <memory>
#include <stdexcept>

namespace {

using namespace Korvane;

/// A page of 5,000 changed files, as large as such pages come.
const std::string& pageText() {
    static const std::string text = [] {
        ChangesPage page;
        for (std::int64_t i = 0; i < 5000; ++i) {
            RemoteFile file;
            file.id = "01890a5d-ac96-774b-bcce-b302099a8057";
            file.folderId = "01890a5d-ac96-774b-bcce-b302099a8058";
            file.metaEnc.assign(180, static_cast<std::uint8_t>(i));
            file.nameBlindIndex = std::string(64, 'a');
            file.blobId = std::string(64, 'b');
            file.encryptedSize = 10'485'789 + i;
            file.chunkCount = 1;
            file.wrappedFileKey.assign(61, static_cast<std::uint8_t>(i));
            file.version = 1;
            file.hasThumbnail = true;
            file.createdAt = file.updatedAt = KRJSON::parseDate("2026-11-21T10:45:07.250Z");
            file.seq = i;
            page.changes.push_back(
                {i, EntityType::file, file.id, ChangeOp::create, "device", file.createdAt, file});
        }
        return KRJSON::write(page);
    }();
    return text;
}

void report(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(pageText().size()));
}

void decodePage(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(KRJSON::read<ChangesPage>(pageText()));
    report(state);
}

void parsePageOnly(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(boost::json::parse(pageText()));
    report(state);
}

void parsePageOnlyMonotonic(benchmark::State& state) {
    for (auto _ : state) {
        boost::json::monotonic_resource memory(1 << 20);
        benchmark::DoNotOptimize(boost::json::parse(pageText(), &memory));
    }
    report(state);
}

constexpr int requestsEachRound = 2000;

Testing::LoopbackServer& server() {
    static Testing::LoopbackServer instance([](const Testing::LoopbackServer::Request&) {
        return Testing::LoopbackServer::Answer{.body = R"({"usedBytes":1,"quotaBytes":2})"};
    });
    return instance;
}

asio::awaitable<void> caller(std::shared_ptr<CurlSession> session, int requests) {
    for (int i = 0; i < requests; ++i) {
        const auto answer =
            co_await session->send({"GET", server().url("/v1/account/usage"), {}, std::nullopt, 1 << 20});
        if (answer.status != 200)
            throw std::runtime_error("no answer");
    }
}

void requestsThroughSession(benchmark::State& state) {
    const auto session = std::make_shared<CurlSession>();
    const auto inFlight = static_cast<int>(state.range(0));
    for (auto _ : state) {
        asio::io_context context(1);
        for (int i = 0; i < inFlight; ++i)
            asio::co_spawn(context, caller(session, requestsEachRound / inFlight),
                           [](const std::exception_ptr& error) {
                               if (error)
                                   std::rethrow_exception(error);
                           });
        context.run();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{requestsEachRound / inFlight} * inFlight);
}

std::size_t ignoreBody(const char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

/// libcurl as its own examples use it: one multi handle in the calling thread, each easy handle kept.
void requestsThroughBareCurl(benchmark::State& state) {
    const auto inFlight = static_cast<int>(state.range(0));
    const auto url = server().url("/v1/account/usage");
    auto* multi = curl_multi_init();
    std::vector<CURL*> handles;
    for (int i = 0; i < inFlight; ++i) {
        handles.push_back(curl_easy_init());
        curl_easy_setopt(handles.back(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(handles.back(), CURLOPT_WRITEFUNCTION, &ignoreBody);
    }
    for (auto _ : state) {
        int started = 0;
        int done = 0;
        for (; started < inFlight; ++started)
            curl_multi_add_handle(multi, handles[static_cast<std::size_t>(started)]);
        while (done < requestsEachRound) {
            int running = 0;
            int left = 0;
            curl_multi_perform(multi, &running);
            while (const auto* message = curl_multi_info_read(multi, &left)) {
                auto* handle = message->easy_handle;
                if (message->data.result != CURLE_OK)
                    throw std::runtime_error("no answer");
                curl_multi_remove_handle(multi, handle);
                ++done;
                if (started++ < requestsEachRound)
                    curl_multi_add_handle(multi, handle);
            }
            if (done < requestsEachRound)
                curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }
    state.SetItemsProcessed(state.iterations() * requestsEachRound);
    for (auto* handle : handles)
        curl_easy_cleanup(handle);
    curl_multi_cleanup(multi);
}

BENCHMARK(decodePage)->Unit(benchmark::kMillisecond);
BENCHMARK(parsePageOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(parsePageOnlyMonotonic)->Unit(benchmark::kMillisecond);
BENCHMARK(requestsThroughSession)->Arg(1)->Arg(16)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(requestsThroughBareCurl)->Arg(1)->Arg(16)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
