// What stands in the card's files.
#include "card_session.h"
#include "openssl.h"

namespace virtual_card {
namespace {

class CardFiles : public testing::TestWithParam<int> {
protected:
    const Generation& generation() { return session.card.generation(); }

    bool isDer(const Bytes& content) {
        openSsl.write("file", content);
        return openSsl.run("asn1parse -inform DER -in file");
    }

    CardSession session{GetParam()};
    OpenSsl openSsl;
};

TEST_P(CardFiles, HoldDer) {
    for (std::string_view path :
         {std::string_view("3F005032"), generation().certificateDirectoryPath,
          generation().authenticationDirectoryPath, generation().privateKeyDirectoryPath}) {
        EXPECT_TRUE(isDer(session.readFile(path))) << path << openSsl.readText("output");
    }
}

TEST_P(CardFiles, HoldCertificatesOfTheTestIssuer) {
    std::string_view issuer = testIssuerCertificate;
    openSsl.write("issuer.pem", Bytes(issuer.begin(), issuer.end()));
    for (const KeyRow& key : generation().keys) {
        openSsl.takeCertificate(session.certificate(key));
        EXPECT_TRUE(openSsl.run("x509 -inform DER -in certificate.der -out certificate.pem"));
        EXPECT_TRUE(openSsl.run("verify -CAfile issuer.pem certificate.pem"))
            << openSsl.readText("output");
        EXPECT_TRUE(openSsl.run("x509 -in certificate.pem -noout -issuer -dates"));
        EXPECT_EQ(openSsl.readText("output"),
                  "issuer=C = FI, CN = Virtual Test CA\n"
                  "notBefore=Jan  1 00:00:00 2020 GMT\n"
                  "notAfter=Dec 31 23:59:59 2049 GMT\n");
    }
}

TEST_P(CardFiles, HoldALogonCertificateForTheAuthenticationKey) {
    openSsl.takeCertificate(session.certificate(session.key(0)));
    ASSERT_TRUE(openSsl.run("x509 -inform DER -in certificate.der -noout -ext extendedKeyUsage"));
    EXPECT_THAT(openSsl.readText("output"), testing::HasSubstr("Microsoft Smartcard Login"));
}

TEST_P(CardFiles, HoldANonRepudiationCertificateForTheSignatureKey) {
    openSsl.takeCertificate(session.certificate(session.key(1)));
    ASSERT_TRUE(openSsl.run("x509 -inform DER -in certificate.der -noout -ext keyUsage"));
    EXPECT_THAT(openSsl.readText("output"), testing::HasSubstr("Non Repudiation"));
}

TEST_P(CardFiles, HaveAsManyCertificatesAsTheGenerationHasKeys) {
    const Bytes directory = session.readFile(generation().certificateDirectoryPath);
    std::size_t entries = 0;
    for (std::size_t at = 0; at + 1 < directory.size() && directory[at] == 0x30; ++entries) {
        ASSERT_LT(directory[at + 1], 0x80);  // the length is in one byte
        at += 2U + directory[at + 1];
    }
    EXPECT_EQ(entries, generation().keys.size());
}

INSTANTIATE_TEST_SUITE_P(CardType, CardFiles, testing::ValuesIn(allCardTypes()));

TEST(CiaInfo, HoldsVersionSerialNumberMakerAndLabel) {
    EXPECT_EQ(toHex(CardSession(5).readFile("3F005032")),
              "304A"                          // the record
              "020101"                        // version
              "04089990000500001234"          // serial number
              "0C0C5669727475616C2043617264"  // "Virtual Card"
              "8025"
              "48454E4B494C4F4B4F5254544920287669727475616C2C2067656E65726174696F6E203529"
              "03020520"    // flags
              "13026669");  // "fi"
}

TEST(ObjectDirectory, HoldsThePathsOfTheDirectories) {
    EXPECT_EQ(toHex(CardSession(3).readFile("3F005031")),
              "A008300604043F004402"    // private keys
              "A408300604043F004403"    // certificates
              "A808300604043F004401");  // authentication objects
}

TEST(ObjectDirectory, HasForeignElementsAheadAndZerosBehindOnGeneration7) {
    EXPECT_EQ(toHex(CardSession(7).readFile("3F005031")),
              "A008300604043F004402"
              "A106300404024409"
              "A20630040402440A"
              "A30630040402440B"
              "A70630040402440C"
              "A408300604043F004403"
              "A808300604043F004401" +
                  std::string(64, '0'));
}

TEST(AuthenticationDirectory, HoldsReferencesAndLimitsOfThePins) {
    EXPECT_EQ(toHex(CardSession(5).readFile("3F004401")),
              "3038"                                    // authentication PIN
              "30110C0F706572757374756E6E75736C756B75"  // "perustunnusluku"
              "3003040101"                              // its identifier
              "A11E301C"                                //
              "0302028C"                                // flags
              "0A0101"                                  // digits
              "020104"
              "02010C"
              "02010C"  // minimum, stored, maximum
              "800111"  // reference
              "040100"
              "300404023F00"  // padding, path
              "3043"          // signature PIN
              "30190C17616C6C656B69726A6F6974757374756E6E75736C756B75"
              "3003040102"
              "A121301F"
              "030202CC"  // local to its directory
              "0A0101"
              "020106"
              "02010C"
              "02010C"
              "80020082"
              "040100"
              "300604043F005016"
              "303E"  // unblocking PIN
              "30160C14616B7469766F696E746974756E6E75736C756B75"
              "3003040103"
              "A11F301D"
              "0302028C"
              "0A0101"
              "020108"
              "02010C"
              "02010C"
              "80020083"
              "040100"
              "300404023F00");
}

}  // namespace
}  // namespace virtual_card
