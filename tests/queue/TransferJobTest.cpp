// The stored form of jobs.
#include "KorvaneCore/queue/TransferJob.hpp"

#include "KorvaneCore/json/KRJSON.hpp"

#include <gmock/gmock.h>

namespace Korvane::Testing {
namespace {

using testing::HasSubstr;

TransferRecord recordWith(std::string_view payload,
                          TransferRecord::Kind kind = TransferRecord::Kind::upload) {
    TransferRecord record;
    record.kind = kind;
    record.payload.assign(payload.begin(), payload.end());
    return record;
}

TEST(TransferJob, OriginsHaveTheirNamesKeysAndDedupeKeys) {
    struct Row {
        TransferOrigin origin;
        std::string json;
        std::optional<std::string> key;
        bool namesOneThing;
    };

    const Row rows[] = {
        {TransferOrigin::Sync{"r", "d/a:b"}, R"({"sync":{"rootId":"r","relPath":"d/a:b"}})", "sync:r:d/a:b",
         true},
        {TransferOrigin::Manual{}, R"({"manual":{}})", {}, false},
        {TransferOrigin::Camera{"x"}, R"({"camera":{"assetId":"x"}})", "camera:x", true},
        {TransferOrigin::ShareExtension{}, R"({"shareExtension":{}})", {}, false},
        {TransferOrigin::Pinned{}, R"({"pinned":{}})", {}, false},
        {TransferOrigin::Preview{}, R"({"preview":{}})", {}, false},
        {TransferOrigin::FileProvider{}, R"({"fileProvider":{}})", {}, false},
        {TransferOrigin::Note{"n"}, R"({"note":{"draftId":"n"}})", {}, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(KRJSON::write(row.origin), row.json);
        EXPECT_EQ(KRJSON::read<TransferOrigin>(row.json), row.origin);
        EXPECT_EQ(row.origin.dedupeKey(), row.key);
        EXPECT_EQ(row.origin.namesOneThing(), row.namesOneThing);
    }
}

TEST(TransferJob, JobsComeBackAsTheyWereStored) {
    UploadJob upload;
    upload.sourcePath = "/a";
    upload.deleteSourceWhenDone = true;
    upload.mtime = KRJSON::parseDate("2026-11-21T10:45:07.250Z");
    upload.baseVersion = 3;
    upload.quickSend = JSONValue(JSONValue::Object{{"to", "device"}});
    upload.sourceStat = LocalStat{1, 2.5, 18'446'744'073'709'551'615U, false};
    upload.wrappedFileKey = KRCrypto::Bytes{1, 2, 255};
    upload.isConflictCopy = true;
    const std::string text =
        R"({"sourcePath":"/a","deleteSourceWhenDone":true,"folderId":"","name":"","mtime":"2026-11-21T10:45:07.250Z",)"
        R"("baseVersion":3,"clientFileId":"","origin":{"manual":{}},"requiresUnmetered":false,"quickSend":{"to":"device"},)"
        R"("sourceStat":{"size":1,"mtime":2.5E0,"inode":18446744073709551615,"isDirectory":false},"wrappedFileKey":"AQL/",)"
        R"("nameAttempt":0,"isConflictCopy":true})";
    auto record = recordWith(text);
    EXPECT_EQ(transferJob(record), TransferJob(upload));
    EXPECT_EQ(transferPayload(upload), record.payload);

    DownloadJob download{"f",  "/b", TransferOrigin::Preview{}, {}, DownloadJob::Collision::overwrite,
                         "/t", 9};
    record = recordWith(
        R"({"fileId":"f","destinationPath":"/b","origin":{"preview":{}},"collision":"overwrite","tempPath":"/t","version":9})",
        TransferRecord::Kind::download);
    EXPECT_EQ(transferJob(record), TransferJob(download));
    EXPECT_EQ(transferPayload(download), record.payload);
}

TEST(TransferJob, UnreadablePayloadsSayWhatIsWrong) {
    struct Row {
        TransferRecord record;
        std::string complaint;
    };

    const std::string origin = R"({"fileId":"f","destinationPath":"/b","collision":"overwrite","origin":)";
    const Row rows[] = {
        {recordWith(""), ""},
        {recordWith("\xff\xfe"), ""},
        {recordWith("[]"), "UploadJob: expected object"},
        {recordWith("{}"), "UploadJob: sourcePath: is missing"},
        {recordWith(origin + R"({}})", TransferRecord::Kind::download),
         "origin: expected one known origin, got 0"},
        {recordWith(origin + R"({"manual":{},"pinned":{}}})", TransferRecord::Kind::download), "got 2"},
        {recordWith(origin + R"({"camera":{}}})", TransferRecord::Kind::download),
         "camera.assetId: is missing"},
        {recordWith("{}", TransferRecord::Kind{7}), "unknown kind of transfer 7"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(readableJob(row.record));
        try {
            (void)transferJob(row.record);
            ADD_FAILURE();
        } catch (const JSONError& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.complaint));
        }
    }
}

} // namespace
} // namespace Korvane::Testing
