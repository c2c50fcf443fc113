#include "KorvaneCore/api/APIClient.hpp"

#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <boost/core/demangle.hpp>
#include <gtest/gtest.h>

#include <fstream>

namespace Korvane {
namespace {

/// A record's or an enumeration's name, with the record it is nested in.
template <class T>
std::string ownName() {
    auto name = boost::core::demangle(typeid(T).name());
    boost::erase_first(name, "Korvane::");
    boost::replace_all(name, "::", ".");
    return name;
}

template <class T>
std::string typeName() {
    if constexpr (KRJSON::Detail::isOptional<T>)
        return typeName<typename T::value_type>() + "?";
    else if constexpr (KRJSON::Detail::isVector<T> && !std::is_same_v<T, KRCrypto::Bytes>)
        return "list of " + typeName<typename T::value_type>();
    else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, SecretText>)
        return "str";
    else if constexpr (std::is_same_v<T, std::int64_t>)
        return "int";
    else if constexpr (std::is_same_v<T, bool>)
        return "bool";
    else if constexpr (std::is_same_v<T, KRCrypto::Bytes> || std::is_same_v<T, KRCrypto::SecretBytes>)
        return "bin";
    else if constexpr (std::is_same_v<T, KRJSON::Date>)
        return "date";
    else
        return ownName<T>();
}

/// The record as its row of the table; and it reads what it writes, with every optional key and with none.
template <class Record>
std::string describe() {
    std::string keys;
    Record full{};
    boost::mp11::mp_for_each<KRJSON::Detail::Members<Record>>([&](auto member) {
        auto& field = full.*member.pointer;
        using Field = std::remove_reference_t<decltype(field)>;
        keys += (keys.empty() ? "" : ", ") + std::string(member.name) + " " + typeName<Field>();
        if constexpr (KRJSON::Detail::isOptional<Field>)
            field.emplace();
    });
    EXPECT_EQ(KRJSON::read<Record>(KRJSON::write(full)), full);
    EXPECT_EQ(KRJSON::read<Record>(KRJSON::write(Record{})), Record{});
    return ownName<Record>() + " | " + keys;
}

template <class... Records>
std::vector<std::string> describeAll() {
    return {describe<Records>()...};
}

TEST(Records, AreWhatTheTableSays) {
    std::ifstream file(KORVANE_SOURCE_DIR "/tests/api/records.txt");
    std::vector<std::string> rows;
    for (std::string line; std::getline(file, line);)
        if (!line.starts_with("#"))
            rows.push_back(line);
    const auto records =
        describeAll<User, Device, AuthParams, AuthParams::Argon2, SignupRequest, LoginRequest, AuthResponse,
                    MeResponse, RecoveryBeginResponse, RecoveryCompleteRequest, ChangePasswordRequest,
                    DeleteAccountRequest, RotateRecoveryRequest, RecoveryWrappedKeyResponse, Usage, SSOConfig,
                    SSOConfig::Apple, SSOConfig::Google, SSOLoginRequest, SSOSignupRequest,
                    LinkIdentityRequest, IdentitiesResponse, PairStartRequest, PairStartResponse,
                    PairPollResponse, PendingPairing, PendingPairingsResponse, PairApproveRequest,
                    DevicesResponse, DeviceEnvelope, DevicePatchRequest, RemoteFolder, RemoteFile,
                    FolderEnvelope, FileEnvelope, ChildrenPage, CreateFolderRequest, UpdateFolderRequest,
                    CreateFileRequest, UpdateFileRequest, FileVersion, VersionsResponse, DownloadInfo,
                    TrashRestoreResponse, CreateUploadRequest, UploadPart, CreateUploadResponse,
                    UploadStatusResponse, PartUploadResponse, CompleteUploadRequest, ChangesPage, Share,
                    ShareEntry, CreateShareRequest, ShareEnvelope, SharesResponse, ShareDetail,
                    PublicShareEntry, PublicShare, UpdateShareRequest, TokenPair, RefreshRequest>();
    ASSERT_EQ(rows.size(), records.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(records[i], rows[i]);
}

} // namespace
} // namespace Korvane
