#include "KorvaneCore/api/APIErrorInfo.hpp"
#include "tests/support/LocalService.hpp"

#include <gtest/gtest.h>

namespace Korvane::Testing {
namespace {

constexpr std::int64_t chunk = 10;
constexpr std::size_t sealedChunk = 26;

class Transfers : public testing::Test {
protected:
    static CompleteUploadRequest completion(const std::string& folder, const std::string& name) {
        CompleteUploadRequest request;
        request.folderId = folder;
        request.metaEnc = {1};
        request.nameBlindIndex = name;
        request.wrappedFileKey = KRCrypto::Bytes(61, 3);
        return request;
    }

    LocalService service_{[](ServiceSettings& settings) {
        settings.chunkSize = chunk;
        settings.quotaBytes = 1000;
    }};
    TestDevice device_{service_};
    APIClient& api_ = *device_.api();
    std::string root_ = device_.signUp("ann@example.org").user.rootFolderId;
};

TEST_F(Transfers, OnlyWholeLayoutsAreTaken) {
    const std::string layout = "Bad request: so many parts do not make a blob of this size";
    const std::tuple<std::int64_t, std::int64_t, std::string> table[] = {
        {16, 1, ""},     {26, 1, ""},     {43, 2, ""},     {52, 2, ""},
        {15, 1, layout}, {27, 1, layout}, {42, 2, layout}, {26, 2, layout},
        {53, 2, layout}, {26, 0, layout}, {-1, 1, layout}, {26 * 10001, 10001, layout},
    };
    for (const auto& [size, count, sentence] : table)
        EXPECT_EQ(device_.failure(api_.createUpload({std::to_string(size), size, count})), sentence)
            << size << " in " << count;
}

TEST_F(Transfers, AnUploadIsCompletedOnceUnderTheNameThatIsFree) {
    device_.upload(root_, "taken", std::string(52, 'x'), sealedChunk, "other");
    const auto upload = device_.run(api_.createUpload({"blob", 70, 3}));
    const auto& parts = upload.parts.value();
    const auto id = upload.uploadId.value();
    const std::string bytes(sealedChunk, 'a');
    device_.run(api_.putPart(parts[1].url, KRCrypto::asBytes(bytes)));
    EXPECT_EQ(device_.failure(api_.completeUpload(id, completion(root_, "file"))),
              "Upload incomplete (missing parts [1, 3])");
    EXPECT_EQ(device_.failure(api_.putPart(parts[2].url, KRCrypto::asBytes(bytes))),
              "The part has another size.");
    device_.run(api_.putPart(parts[0].url, KRCrypto::asBytes(bytes)));
    device_.run(api_.putPart(parts[0].url, KRCrypto::asBytes(bytes)));
    device_.run(api_.putPart(parts[2].url, KRCrypto::asBytes(std::string_view("123456781234567812"))));
    EXPECT_EQ(device_.failure(api_.completeUpload(id, completion(root_, "taken"))),
              "An item with that name already exists");
    const auto file = device_.run(api_.completeUpload(id, completion(root_, "free")));
    EXPECT_EQ(device_.run(api_.completeUpload(id, completion(root_, "free"))), file) << "a lost answer";
    EXPECT_EQ(device_.run(api_.uploadStatus(id)).state, "completed");
    EXPECT_EQ(device_.failure(api_.putPart(parts[0].url, KRCrypto::asBytes(bytes))), "Not found");
    const auto again = device_.run(api_.createUpload({"blob", 70, 3}));
    EXPECT_EQ(again.status, "exists");
    EXPECT_EQ(again.wrappedFileKey, file.wrappedFileKey);
}

TEST_F(Transfers, WhatTheDiskLostIsPutAgainAndWhatACompletionLeftIsTakenUp) {
    const auto upload = device_.run(api_.createUpload({"blob", 70, 3}));
    const auto id = upload.uploadId.value();
    const auto folder = service_.folder() / "uploads" / id;
    const auto put = [&](std::size_t part) {
        device_.run(api_.putPart(upload.parts.value()[part - 1].url,
                                 KRCrypto::asBytes(std::string(part == 3 ? 18 : sealedChunk, 'a'))));
    };
    for (const std::size_t part : {1U, 2U, 3U})
        put(part);
    std::filesystem::resize_file(folder / "1", 0);
    std::filesystem::remove(folder / "3");
    EXPECT_EQ(device_.run(api_.uploadStatus(id)).parts[0].uploaded, false);
    EXPECT_EQ(device_.failure(api_.completeUpload(id, completion(root_, "file"))),
              "Upload incomplete (missing parts [1, 3])");
    put(1);
    put(3);
    writeFile(folder / "2.AbCdEf", "a crash left this");
    const auto file = device_.run(api_.completeUpload(id, completion(root_, "file")));
    const std::filesystem::directory_iterator parts(service_.folder() / "blobs" / id);
    EXPECT_EQ(std::distance(begin(parts), end(parts)), 3);
    EXPECT_EQ(device_.run(api_.getRange(device_.run(api_.downloadInfo(file.id)).url, {0, 70})).size(), 70U);

    const auto moved = device_.run(api_.createUpload({"moved", 20, 1})); // and then the machine stopped
    device_.run(api_.putPart(moved.parts->at(0).url, KRCrypto::asBytes(std::string(20, 'a'))));
    std::filesystem::rename(service_.folder() / "uploads" / moved.uploadId.value(),
                            service_.folder() / "blobs" / moved.uploadId.value());
    EXPECT_EQ(device_.failure(api_.completeUpload(moved.uploadId.value(), completion(root_, "moved"))), "");
}

TEST_F(Transfers, TheSecondOfTwoEqualUploadsBeginsAgain) {
    const std::string bytes(20, 'a');
    const auto first = device_.run(api_.createUpload({"blob", 20, 1}));
    const auto second = device_.run(api_.createUpload({"blob", 20, 1}));
    for (const auto* upload : {&first, &second})
        device_.run(api_.putPart(upload->parts->at(0).url, KRCrypto::asBytes(bytes)));
    device_.run(api_.completeUpload(first.uploadId.value(), completion(root_, "one")));
    try {
        device_.run(api_.completeUpload(second.uploadId.value(), completion(root_, "two")));
        ADD_FAILURE() << "both were stored";
    } catch (const APIError& error) {
        EXPECT_TRUE(error.isRetryable());
    }
    EXPECT_EQ(device_.failure(api_.uploadStatus(second.uploadId.value())), "Not found");
    EXPECT_EQ(device_.run(api_.createUpload({"blob", 20, 1})).status, "exists");
}

TEST_F(Transfers, RangesCrossChunksAndEndWithTheBlob) {
    std::string bytes;
    for (char c = 'A'; bytes.size() < 70; ++c)
        bytes.push_back(c);
    const auto file = device_.upload(root_, "file", bytes, sealedChunk, "blob");
    const auto url = device_.run(api_.downloadInfo(file.id)).url;
    for (const auto& [first, end] : {std::pair{0, 70}, {0, 1}, {25, 27}, {26, 52}, {10, 65}, {69, 70}}) {
        const auto got = device_.run(api_.getRange(url, {first, end}));
        EXPECT_EQ(KRCrypto::asText(got),
                  bytes.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(end - first)));
    }
    EXPECT_NE(device_.failure(api_.getRange(url, {50, 71})), "") << "fewer bytes than asked for";
    EXPECT_NE(device_.failure(api_.getRange(url, {70, 71})), "");
}

TEST_F(Transfers, StorageURLsExpireAndCannotBeForged) {
    const auto file = device_.upload(root_, "file", std::string(20, 'x'), sealedChunk, "blob");
    const auto url = device_.run(api_.downloadInfo(file.id)).url;
    const auto signature = url.find("signature=") + 10;
    const auto otherDigit = [](std::string text, std::size_t at) {
        text[at] = text[at] == '0' ? '1' : '0';
        return text;
    };
    EXPECT_EQ(device_.failure(api_.getRange(otherDigit(url, signature), {0, 1})), "Forbidden");
    EXPECT_EQ(device_.failure(api_.getRange(otherDigit(url, url.find("expires=") + 10), {0, 1})),
              "Forbidden");
    EXPECT_EQ(device_.failure(api_.putPart(url, KRCrypto::asBytes("x"))), "Not found");
    service_.clock->advance(std::chrono::seconds(3599));
    EXPECT_EQ(device_.failure(api_.getRange(url, {0, 1})), "");
    service_.clock->advance(std::chrono::seconds(2));
    EXPECT_EQ(device_.failure(api_.getRange(url, {0, 1})), "Forbidden");
}

TEST_F(Transfers, QuotaCountsWhatIsStoredAndWhatIsUnderWay) {
    const std::string full = "Storage full — delete files to free up space.";
    device_.upload(root_, "file", std::string(520, 'x'), sealedChunk, "stored"); // 20 chunks
    const auto upload = device_.run(api_.createUpload({"under way", 468, 18}));
    EXPECT_EQ(device_.failure(api_.createUpload({"too much", 16, 1})), full);
    device_.run(api_.abortUpload(upload.uploadId.value()));
    EXPECT_EQ(device_.failure(api_.createUpload({"fits", 468, 18})), "");
    service_.clock->advance(std::chrono::hours(24 * 7));
    EXPECT_EQ(device_.failure(api_.uploadStatus(upload.uploadId.value())), "Not found");
    EXPECT_EQ(device_.failure(api_.createUpload({"after the other expired", 468, 18})), "");
}

TEST_F(Transfers, EverythingSurvivesARestart) {
    const auto file = device_.upload(root_, "file", std::string(20, 'x'), sealedChunk, "blob");
    const auto open = device_.run(api_.createUpload({"open", 20, 1}));
    const auto url = device_.run(api_.downloadInfo(file.id)).url;
    service_.restart();
    EXPECT_EQ(device_.run(api_.file(file.id)), file);
    EXPECT_EQ(device_.run(api_.getRange(url, {0, 20})), KRCrypto::Bytes(20, 'x'));
    device_.run(api_.putPart(open.parts->at(0).url, KRCrypto::asBytes(std::string(20, 'y'))));
    device_.run(api_.completeUpload(open.uploadId.value(), completion(root_, "other")));
}

} // namespace
} // namespace Korvane::Testing
