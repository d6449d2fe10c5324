#include "files/virtual_files.h"

#include <algorithm>
#include <array>
#include <span>

namespace KelmoraID {
namespace {

// cardcf: version, PIN freshness, containers freshness, files freshness. Every counter stays at 0.
std::span<const BYTE> cacheFile(const CardContext&) {
    static constexpr std::array<BYTE, sizeof(CARD_CACHE_FILE_FORMAT)> zeros{};
    return zeros;
}

std::span<const BYTE> cardIdentifierFile(const CardContext& context) {
    return context.cardIdentifier;
}

std::span<const BYTE> applicationsFile(const CardContext&) {
    static constexpr std::array<BYTE, 8> applications{'m', 's', 'c', 'p', 0, 0, 0, 0};
    return applications;
}

std::span<const BYTE> containerMapFile(const CardContext& context) {
    const auto* first = reinterpret_cast<const BYTE*>(context.containers.data());
    return {first, context.containers.size() * sizeof(KeyContainer)};
}

// The certificate as read from the card: DER, with no header and no compression.
template <PCCERT_CONTEXT CardContext::*certificate>
std::span<const BYTE> certificateFile(const CardContext& context) {
    const CERT_CONTEXT& held = *(context.*certificate);
    return {held.pbCertEncoded, held.cbCertEncoded};
}

template <DWORD size>
DWORD fixedSize(const CardContext&) {
    return size;
}

DWORD containerMapSize(const CardContext& context) {
    return static_cast<DWORD>(context.containers.size() * sizeof(KeyContainer));
}

// quirk: certificates-of-20-bytes. Callers get by: CardReadFile gives the true size.
constexpr auto statedCertificateSize = fixedSize<20>;

constexpr std::array<VirtualFile, 3> rootFiles{{
    {"cardapps", EveryoneReadAdminWriteAc, fixedSize<8>, applicationsFile, false},
    {"cardcf", EveryoneReadUserWriteAc, fixedSize<6>, cacheFile, false},
    {"cardid", EveryoneReadAdminWriteAc, fixedSize<16>, cardIdentifierFile, false},
}};

constexpr std::array<VirtualFile, 4> minidriverFiles{{
    {"cmapfile", EveryoneReadUserWriteAc, containerMapSize, containerMapFile, false},
    {"kxc00", EveryoneReadUserWriteAc, statedCertificateSize,
     certificateFile<&CardContext::authCert>, false},
    {"ksc01", EveryoneReadUserWriteAc, statedCertificateSize,
     certificateFile<&CardContext::signCert>, false},
    {"ksc02", EveryoneReadUserWriteAc, statedCertificateSize,
     certificateFile<&CardContext::secondSignCert>, true},
}};

const VirtualFile* find(std::span<const VirtualFile> files, std::string_view name) {
    const auto file = std::find_if(files.begin(), files.end(),
                                   [&](const VirtualFile& f) { return sameName(f.name, name); });
    return file == files.end() ? nullptr : &*file;
}

bool isThere(const VirtualFile& file, const CardContext& context) {
    return !file.onlyWithSecondSignCert || context.hasSecondSignCert;
}

void appendName(ByteVector& listing, std::string_view name) {
    listing.insert(listing.end(), name.begin(), name.end());
    listing.push_back(0);
}

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool sameName(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lowerCase(a) == lowerCase(b); });
}

const VirtualFile* findRootFile(std::string_view name) {
    return find(rootFiles, name);
}

const VirtualFile* findMinidriverFile(std::string_view name, const CardContext& context) {
    const VirtualFile* file = find(minidriverFiles, name);
    return file != nullptr && isThere(*file, context) ? file : nullptr;
}

ByteVector rootListing() {
    ByteVector listing;
    for (const VirtualFile& file : rootFiles) appendName(listing, file.name);
    listing.push_back(0);
    return listing;
}

ByteVector minidriverListing(const CardContext& context) {
    ByteVector listing;
    for (const VirtualFile& file : minidriverFiles) {
        if (isThere(file, context)) appendName(listing, file.name);
    }
    listing.push_back(0);
    return listing;
}

}  // namespace KelmoraID
