#include "frame/container_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "support/fineid_script.h"
#include "support/test_certificates.h"
#include "text/text_conversion.h"

namespace KelmoraID {
namespace {

using namespace testing;

struct Listed {
    std::string name;
    BYTE bFlags;
    WORD wSigKeySizeBits;
    WORD wKeyExchangeKeySizeBits;
    bool operator==(const Listed&) const = default;
};

void PrintTo(const Listed& listed, std::ostream* out) {
    *out << listed.name << " flags " << int{listed.bFlags} << ", " << listed.wSigKeySizeBits
         << " and " << listed.wKeyExchangeKeySizeBits << " bits";
}

class ContainerList : public ::testing::Test {
protected:
    ContainerList() {
        const ByteVector identifier = bytes("000102030405060708090A0B0C0D0E0F");
        std::copy(identifier.begin(), identifier.end(), context.cardIdentifier);
    }
    ~ContainerList() override {
        for (PCCERT_CONTEXT certificate : certificates) CertFreeCertificateContext(certificate);
    }
    PCCERT_CONTEXT made(const ByteVector& encoded) {
        certificates.push_back(CertCreateCertificateContext(certificateEncodings, encoded.data(),
                                                            static_cast<DWORD>(encoded.size())));
        EXPECT_NE(certificates.back(), nullptr);
        return certificates.back();
    }
    std::vector<Listed> listed() {
        listContainers(record.data, context);
        std::vector<Listed> all;
        for (const KeyContainer& container : context.containers) {
            all.push_back({wideToUtf8(container.wszGuid).c_str(), container.bFlags,
                           container.wSigKeySizeBits, container.wKeyExchangeKeySizeBits});
        }
        return all;
    }
    PlatformRecord record{CardType::type7};
    CardContext context;
    std::vector<PCCERT_CONTEXT> certificates;
};

// The names are of the SHA-1 of the identifier in lower-case hexadecimal and "_AUTH", "_SIGN",
// "_SIGN_SEC": the same on every machine.
const Listed authentication{"{54497D1B-F8F9-5B48-80C4-DD601EC4DAE3}", 3, 0, 256};
const Listed signature{"{D5368176-94AB-544F-80A6-044D26C72C68}", 1, 384, 0};
const Listed secondSignature{"{BCA2164A-C5DD-5A96-80DD-0435F610DF27}", 1, 2048, 0};

TEST_F(ContainerList, HasARecordForEachCertificate) {
    context.authCert = made(p256Certificate());
    context.signCert = made(p384Certificate());
    context.secondSignCert = made(rsa2048Certificate());
    EXPECT_EQ(listed(), (std::vector<Listed>{authentication, signature, secondSignature}));
}

TEST_F(ContainerList, HasNoRecordForACertificateThatIsNotThere) {
    context.authCert = made(p256Certificate());
    context.signCert = made(p384Certificate());
    EXPECT_EQ(listed(), (std::vector<Listed>{authentication, signature}));
}

}  // namespace
}  // namespace KelmoraID
