#include "KRCrypto/ChunkCrypto.hpp"
#include "KRCrypto/ChunkDecryptor.hpp"
#include "KRCrypto/ChunkDigests.hpp"
#include "KRCrypto/FileChunkReader.hpp"
#include "KRCrypto/MasterKey.hpp"
#include "tests/KRCrypto/Vectors.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <memory>
#include <system_error>

namespace KRCrypto::Tests {
namespace {

namespace fs = std::filesystem;
using namespace ChunkCrypto;

constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t most32 = std::numeric_limits<std::uint32_t>::max();

class Files : public testing::Test {
protected:
    Files() {
        std::string name = (fs::temp_directory_path() / "krcrypto-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        file_ = folder_ / "source";
    }

    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    ~Files() override { fs::remove_all(folder_); }

    void write(const fs::path& path, ByteView content) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), std::ssize(content));
    }

    fs::path folder_;
    fs::path file_;
    Bytes key_ = Bytes(32, 9);
};

template <class Call>
int systemErrorOf(Call call) {
    try {
        static_cast<void>(call());
        return 0;
    } catch (const std::system_error& error) {
        return error.code().value();
    }
}

const auto ignore = [](std::int64_t, ByteView) {};

TEST_F(Files, GoldenContentsGoBothWaysAtEveryChunkEdge) {
    const auto v = vectors("golden/files");
    const Bytes fk = bytes(v, "fileKey");
    const std::int64_t size = number(v, "chunkSize");
    for (const auto& content : v.at("contents").as_array()) {
        const Bytes plain = bytes(content, "plain");
        std::vector<Bytes> golden;
        for (const auto& chunk : content.at("chunks").as_array()) {
            golden.push_back(Hex::decode(std::string_view(chunk.as_string())));
        }
        write(file_, plain);

        std::vector<Bytes> made;
        const EncryptSummary summary = encryptFile(file_, fk, size, [&](std::int64_t index, ByteView chunk) {
            EXPECT_EQ(index, std::ssize(made));
            made.push_back(copyOf(chunk));
        });
        EXPECT_EQ(made, golden);
        const auto blob = static_cast<std::int64_t>(plain.size() + 16 * golden.size());
        EXPECT_EQ(summary,
                  (EncryptSummary{text(content, "sha256"), std::ssize(plain), std::ssize(golden), blob}));
        EXPECT_EQ(encryptedSize(std::ssize(plain), size), blob);

        const FileChunkReader reader(file_, size);
        Bytes decrypted;
        EXPECT_EQ(decryptChunks(
                      fk, reader.chunkCount(), text(content, "sha256"),
                      [&](std::int64_t index) { return reader.encrypted(index, fk); },
                      [&](ByteView part) { decrypted.insert(decrypted.end(), part.begin(), part.end()); }),
                  text(content, "sha256"));
        EXPECT_EQ(decrypted, plain);
        EXPECT_EQ(
            decryptChunks(
                fk, std::ssize(golden), {},
                [&](std::int64_t index, Bytes& chunk) { chunk = golden[static_cast<std::size_t>(index)]; },
                [](ByteView) {}),
            text(content, "sha256"));
        EXPECT_EQ(sha256OfFile(file_, 63), std::pair(sha256(plain), static_cast<std::int64_t>(plain.size())));
    }
    const auto& far = v.at("farChunk");
    EXPECT_EQ(encryptChunk(fk, number(far, "index"), number(far, "chunkCount"), bytes(far, "plain")),
              bytes(far, "chunk"));
    EXPECT_EQ(goldenKey().unwrapFileKey(bytes(v, "wrappedFileKey")), SecretBytes::copyOf(fk));
    EXPECT_EQ(openThumbnail(fk, bytes(v.at("thumbnail"), "sealed")), bytes(v.at("thumbnail"), "plain"));
}

TEST_F(Files, FullChunkAndOneByteMore) {
    const Bytes plain(static_cast<std::size_t>(chunkSize) + 1, 0xA5);
    write(file_, plain);
    std::vector<std::size_t> sizes;
    const auto summary = encryptFile(file_, key_, effectiveChunkSize(),
                                     [&](std::int64_t, ByteView chunk) { sizes.push_back(chunk.size()); });
    EXPECT_EQ(sizes, (std::vector<std::size_t>{10485776, 17}));
    EXPECT_EQ(summary.encryptedSize, 10485793);
    EXPECT_EQ(summary.sha256, hexString(sha256(plain)));
}

// The result, or the sentence of its failure.
template <std::invocable Call>
Value resultOf(Call call) {
    Value result;
    const std::string sentence = failureOf([&] { return result = call(); });
    return sentence.empty() ? result : Value(sentence);
}

TEST(ChunkArithmetic, HoldsAtTheEdges) {
    const Value v = vectors("cases/chunks");
    for (const auto& r : v.at("counts").as_array()) {
        EXPECT_EQ(resultOf([&] { return chunkCount(number(r, "plainSize"), number(r, "chunkSize")); }),
                  r.at("is"));
    }
    for (const auto& r : v.at("sizes").as_array()) {
        EXPECT_EQ(resultOf([&] { return encryptedSize(number(r, "plainSize"), number(r, "chunkSize")); }),
                  r.at("is"));
    }
    const auto rangeOf = [](const Value& r) {
        return encryptedRange(number(r, "index"), number(r, "count"), number(r, "size"),
                              number(r, "chunkSize"));
    };
    for (const auto& r : v.at("ranges").as_array()) {
        EXPECT_EQ(rangeOf(r), (ByteRange{number(r, "start"), number(r, "end")}));
    }
    for (const auto& r : v.at("refusedRanges").as_array()) {
        EXPECT_EQ(failureOf([&] { return rangeOf(r); }), text(r, "is"));
    }
}

TEST(Chunks, RefuseInTheOrderOfTheirChecks) {
    for (const auto& r : rows("cases/chunks", "decrypting")) {
        const Bytes key(static_cast<std::size_t>(number(r, "key")));
        const Bytes chunk(static_cast<std::size_t>(number(r, "size")));
        const std::string sentence = text(r, "is");
        EXPECT_EQ(failureOf([&] { return decryptChunk(key, number(r, "index"), number(r, "count"), chunk); }),
                  sentence);
        EXPECT_EQ(failureOf([&] { return encryptChunk(key, number(r, "index"), number(r, "count"), chunk); }),
                  sentence.starts_with("Invalid") || sentence == sizeMismatch ? sentence : "");
    }
    Bytes tight(15);
    EXPECT_EQ(failureOf([&] { return encryptChunkInto(Bytes(32), 0, 1, {}, tight); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return decryptChunkInto(Bytes(32), 0, 1, Bytes(32), tight); }), sizeMismatch);
}

TEST(Chunks, AreBoundToKeyPlaceAndCount) {
    const Bytes key(32, 1);
    const Bytes chunk = encryptChunk(key, 1, 3, Bytes(40, 0x55));
    const std::tuple<std::uint8_t, std::int64_t, std::int64_t> elsewhere[] = {
        {1, 0, 3}, {1, 2, 3}, {1, 1, 2}, {1, 1, 4}, {2, 1, 3}};
    for (const auto& [fill, index, count] : elsewhere) {
        EXPECT_EQ(failureOf([&] { return decryptChunk(Bytes(32, fill), index, count, chunk); }),
                  authenticationFailed);
    }
    for (std::size_t at = 0; at < chunk.size(); ++at) {
        Bytes kept = flipped(chunk, at);
        EXPECT_EQ(failureOf([&] { return decryptChunkInto(key, 1, 3, kept, kept); }), authenticationFailed);
        EXPECT_EQ(std::ranges::count(kept, 0x55), 0) << "plaintext is left behind";
    }
    EXPECT_EQ(decryptChunk(key, 1, 3, chunk), Bytes(40, 0x55));
}

TEST(Decryptor, TakesEachChunkOnceInOrderAndChecksTheWhole) {
    const Bytes key(32, 1);
    const Bytes first = encryptChunk(key, 0, 2, asBytes("ab"));
    const Bytes second = encryptChunk(key, 1, 2, asBytes("c"));
    ChunkDecryptor decryptor(key, 2);
    EXPECT_EQ(failureOf([&] { return decryptor.decrypt(1, second); }), "Invalid chunk index");
    EXPECT_EQ(failureOf([&] { return decryptor.finish(); }), "Invalid chunk index");
    EXPECT_EQ(decryptor.decrypt(0, first), copyOf("ab"));
    EXPECT_EQ(failureOf([&] { return decryptor.decrypt(0, first); }), "Invalid chunk index");
    EXPECT_EQ(failureOf([&] { return decryptor.decrypt(1, first); }), authenticationFailed);
    EXPECT_EQ(decryptor.nextIndex(), 1);
    EXPECT_EQ(failureOf([&] { return decryptor.finish(); }), "Invalid chunk index");
    EXPECT_EQ(decryptor.decrypt(1, second), copyOf("c"));
    EXPECT_EQ(decryptor.plainBytes(), 3);

    const std::string hash = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_EQ(decryptor.finish(), hash);
    EXPECT_EQ(decryptor.finish("BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"), hash);
    EXPECT_EQ(failureOf([&] { return decryptor.finish("BA7816BF8F01\xff"); }),
              "Integrity check failed (expected BA7816BF8F01…, got ba7816bf8f01…)");
    for (const std::int64_t count : {std::int64_t{0}, std::int64_t{-1}, most32 + 1}) {
        EXPECT_EQ(failureOf([&] { return ChunkDecryptor(key, count); }), "Invalid chunk index");
    }
}

TEST_F(Files, ChangesWhileEncryptingAreFound) {
    const auto resize = [&](std::uintmax_t size) { return [this, size] { fs::resize_file(file_, size); }; };
    const std::tuple<std::string_view, std::function<void()>, bool> table[] = {
        {"untouched", [] {}, true},
        {"grows by a byte in its last chunk", resize(91), false},
        {"grows by chunks", resize(300), false},
        {"shrinks by a byte", resize(89), false},
        {"shrinks to the chunk already read", resize(40), false},
        {"is emptied", resize(0), false},
        {"is replaced by another file", [&] { fs::rename(folder_ / "other", file_); }, true},
        {"is removed", [&] { fs::remove(file_); }, true},
    };
    for (const auto& [what, change, fine] : table) {
        write(file_, Bytes(90, 1));
        write(folder_ / "other", Bytes(7, 2));
        const auto afterFirst = [&](std::int64_t index, ByteView) { index == 0 ? change() : void(); };
        EXPECT_EQ(failureOf([&] { return encryptFile(file_, key_, 40, afterFirst); }),
                  fine ? "" : "File changed while it was being read")
            << what;
    }
}

TEST_F(Files, StoppingASinkOrATokenEndsEncrypting) {
    write(file_, Bytes(90, 1));
    std::stop_source stop;
    int chunks = 0;
    const auto stopAfterFirst = [&](std::int64_t, ByteView) {
        ++chunks;
        stop.request_stop();
    };
    EXPECT_EQ(systemErrorOf([&] { return encryptFile(file_, key_, 40, stopAfterFirst, stop.get_token()); }),
              ECANCELED);
    EXPECT_EQ(chunks, 1);
    EXPECT_EQ(systemErrorOf([&] { return sha256OfFile(file_, 10, stop.get_token()); }), ECANCELED);
    const auto abort = [](std::int64_t, ByteView) { throw std::out_of_range("enough"); };
    EXPECT_THROW(encryptFile(file_, key_, 40, abort), std::out_of_range);
}

TEST_F(Files, RefusesWhatItCannotEncrypt) {
    const fs::path pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::pair<fs::path, int> unreadable[] = {{file_, ENOENT}, {folder_, EISDIR}, {pipe, EINVAL}};
    for (const auto& [path, code] : unreadable) { // before the key is looked at
        EXPECT_EQ(systemErrorOf([&] { return encryptFile(path, Bytes(5), 40, ignore); }), code);
        EXPECT_EQ(systemErrorOf([&] { return sha256OfFile(path); }), code);
        EXPECT_EQ(systemErrorOf([&] { return FileChunkReader(path).plain(0); }), code);
    }
    EXPECT_EQ(FileChunkReader(pipe).plainSize(), 0);

    write(file_, Bytes(10001, 1));
    EXPECT_EQ(failureOf([&] { return encryptFile(file_, key_, 1, ignore); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return encryptFile(file_, key_, 0, ignore); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return encryptFile(file_, Bytes(5), 40, ignore); }), "Invalid key length 5");
    EXPECT_EQ(encryptFile(file_, key_, most, ignore).chunkCount, 1);
    EXPECT_EQ(failureOf([&] { return sha256OfFile(file_, 0); }), sizeMismatch);
    fs::resize_file(file_, chunkSize + 1);
    EXPECT_EQ(failureOf([&] { return encryptFile(file_, key_, chunkSize + 1, ignore); }), sizeMismatch);
    EXPECT_EQ(failureOf([&] { return FileChunkReader(file_, most).encrypted(0, key_); }), sizeMismatch);
}

TEST_F(Files, ReaderFindsChunksThatComeShortAndLeavesNoPlaintext) {
    write(file_, Bytes(90, 0x55));
    const FileChunkReader reader(file_, 40);
    EXPECT_EQ(reader.plain(2), Bytes(10, 0x55));
    fs::resize_file(file_, 85);
    EXPECT_EQ(reader.plain(1), Bytes(40, 0x55));
    EXPECT_EQ(failureOf([&] { return reader.plain(2); }), "File changed while it was being read");

    const std::tuple<std::int64_t, std::size_t, std::size_t, std::string_view> table[] = {
        {2, 32, 56, "File changed while it was being read"},
        {3, 32, 56, "Invalid chunk index"},
        {-1, 32, 56, "Invalid chunk index"},
        {0, 31, 56, "Invalid key length 31"},
        {0, 32, 55, "Size mismatch"},
    };
    for (const auto& [index, keyLength, room, sentence] : table) {
        Bytes out(room);
        EXPECT_EQ(failureOf([&] { return reader.encryptedInto(index, Bytes(keyLength), out); }), sentence);
        EXPECT_EQ(std::ranges::count(out, 0x55), 0) << sentence;
    }
    EXPECT_EQ(failureOf([&] { return reader.encrypted(0, Bytes(31)); }), "Invalid key length 31");
}

TEST(ChunkDigestsTest, TellTheChunksApartWhateverThePiecesTheyWereReadIn) {
    constexpr std::size_t size = 100;
    Bytes plain(2 * size + 7);
    std::ranges::generate(plain, [n = 0]() mutable { return static_cast<std::uint8_t>(n++ * 31); });
    const auto chunk = [&](std::size_t index) {
        return ByteView(plain).subspan(index * size, std::min(size, plain.size() - index * size));
    };
    for (const std::size_t piece : {std::size_t{1}, size - 1, size, size + 1, plain.size()}) {
        ChunkDigests digests(size);
        for (std::size_t at = 0; at < plain.size(); at += piece) {
            digests.update(ByteView(plain).subspan(at, std::min(piece, plain.size() - at)));
        }
        digests.finish();
        for (std::size_t index = 0; index < 3; ++index) {
            Bytes changed(chunk(index).begin(), chunk(index).end());
            EXPECT_TRUE(digests.matches(static_cast<std::int64_t>(index), changed)) << piece;
            EXPECT_FALSE(digests.matches(static_cast<std::int64_t>((index + 1) % 3), changed));
            EXPECT_FALSE(digests.matches(static_cast<std::int64_t>(index), ByteView(changed).first(6)));
            changed.back() ^= 1U;
            EXPECT_FALSE(digests.matches(static_cast<std::int64_t>(index), changed));
        }
        EXPECT_FALSE(digests.matches(3, {}));
        EXPECT_FALSE(digests.matches(-1, {}));
    }
    ChunkDigests none(size);
    none.finish();
    EXPECT_TRUE(none.matches(0, {}));
}

} // namespace
} // namespace KRCrypto::Tests
