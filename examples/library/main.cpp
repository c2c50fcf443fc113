// Seals a file as the service would store it, opens it again, and keeps a note of it in a local index.
#include <KRCrypto/ChunkCrypto.hpp>
#include <KRCrypto/MasterKey.hpp>
#include <KorvaneCore/storage/LocalIndex.hpp>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <vector>

namespace {

void sealAndOpen(const std::filesystem::path& file, const std::filesystem::path& database) {
    const auto masterKey = KRCrypto::MasterKey::generate();
    const auto fileKey = KRCrypto::ChunkCrypto::generateFileKey();

    std::vector<KRCrypto::Bytes> sealed;
    const auto summary = KRCrypto::ChunkCrypto::encryptFile(
        file, fileKey, KRCrypto::chunkSize,
        [&](std::int64_t, KRCrypto::ByteView chunk) { sealed.emplace_back(chunk.begin(), chunk.end()); });

    // Only who has the master key gets at the file's own; the hash tells whether the whole came back.
    const auto wrapped = masterKey.wrapFileKey(fileKey);
    std::int64_t opened = 0;
    KRCrypto::ChunkCrypto::decryptChunks(
        masterKey.unwrapFileKey(wrapped), summary.chunkCount, summary.sha256,
        KRCrypto::EncryptedChunkSource(
            [&](std::int64_t index) { return sealed.at(static_cast<std::size_t>(index)); }),
        [&](KRCrypto::ByteView plain) { opened += static_cast<std::int64_t>(plain.size()); });

    Korvane::IndexItem item;
    item.id = "example";
    item.name = file.filename().string();
    item.size = opened;
    Korvane::LocalIndex index(database);
    index.upsert(item);
    if (const auto found = index.item(item.id))
        std::printf("%s: %lld bytes, sealed in %lld, opened again\n", found->name.c_str(),
                    static_cast<long long>(found->size), static_cast<long long>(summary.encryptedSize));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("Usage: seal-file FILE DATABASE\n", stderr);
        return 2;
    }
    try {
        sealAndOpen(argv[1], argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seal-file: %s\n", error.what());
        return 1;
    }
}
