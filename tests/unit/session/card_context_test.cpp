#include "session/card_context.h"

#include <gtest/gtest.h>

namespace KelmoraID {
namespace {

TEST(CardContext, KnowsTheCertificateOfEachContainerAndOfNoOther) {
    CERT_CONTEXT certificates[3]{};
    CardContext context;
    context.authCert = &certificates[0];
    context.signCert = &certificates[1];
    context.secondSignCert = &certificates[2];
    for (BYTE index = 0; index < 3; ++index) {
        EXPECT_EQ(certificateOf(context, index), &certificates[index]);
    }
    for (const BYTE index : {BYTE{3}, BYTE{0xFF}})
        EXPECT_EQ(certificateOf(context, index), nullptr);
}

TEST(HasEcPublicKey, GoesByTheKeysAlgorithm) {
    struct Row {
        const char* algorithm;
        bool isEc;
    };
    constexpr Row rows[] = {{"1.2.840.10045.2.1", true},
                            {"1.2.840.10045.2.2", false},
                            {"1.2.840.113549.1.1.1", false},
                            {"", false},
                            {nullptr, false}};
    for (const Row& row : rows) {
        std::string text = row.algorithm == nullptr ? "" : row.algorithm;
        CERT_INFO info{};
        if (row.algorithm != nullptr) info.SubjectPublicKeyInfo.Algorithm.pszObjId = text.data();
        CERT_CONTEXT certificate{};
        certificate.pCertInfo = &info;
        EXPECT_EQ(hasEcPublicKey(&certificate), row.isEc) << text;
    }
}

}  // namespace
}  // namespace KelmoraID
