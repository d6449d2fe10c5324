#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/fixed_paths.h"
#include "platform/win32.h"

namespace {

constexpr LPCWSTR key = u"SOFTWARE\\Kelmora\\KelmoraID\\";

class RegistrySettings : public ::testing::Test {
protected:
    void settings(const std::string& text) {
        std::ofstream(settingsFilePath(), std::ios::binary) << text;
    }
    LSTATUS read(LPCWSTR name, LPCWSTR of = key) {
        value.assign(64, u'#');
        size = 128;
        const LSTATUS status =
            RegGetValueW(HKEY_LOCAL_MACHINE, of, name, RRF_RT_REG_SZ, nullptr, value.data(), &size);
        // The terminator is part of the count.
        if (status == ERROR_SUCCESS) {
            EXPECT_EQ(value[size / 2 - 1], u'\0');
            value.resize(size / 2 - 1);
        }
        return status;
    }
    void TearDown() override { std::filesystem::remove(settingsFilePath()); }
    std::u16string value;
    DWORD size = 0;
};

TEST_F(RegistrySettings, GiveAValueWithItsTerminatorCounted) {
    settings("[SOFTWARE\\Kelmora\\KelmoraID]\nADRSURL=https://host:443;http://other:80\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_SUCCESS);
    EXPECT_EQ(value, u"https://host:443;http://other:80");
    EXPECT_EQ(size, 2 * 33U);
    EXPECT_EQ(read(u"ADRSURL", u"SOFTWARE\\Kelmora\\KelmoraID"), ERROR_SUCCESS);
}

TEST_F(RegistrySettings, PassOverCommentsBlanksAndOtherKeys) {
    settings(
        "# first\r\n[Other]\r\nADRSURL=other\r\n\r\n[SOFTWARE\\Kelmora\\KelmoraID]\r\n"
        "# ADRSURL=comment\r\nno value\r\n  ADRSURL = wanted \r\nADRSURL=second\r\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_SUCCESS);
    EXPECT_EQ(value, u"wanted");
}

TEST_F(RegistrySettings, AreUtf8) {
    settings("[SOFTWARE\\Kelmora\\KelmoraID]\nKelmora ID=\\opt\\\xC3\xA4\\\xF0\x9F\x82\xA1\n");
    EXPECT_EQ(read(u"Kelmora ID"), ERROR_SUCCESS);
    EXPECT_EQ(value, u"\\opt\\\u00E4\\\U0001F0A1");
}

TEST_F(RegistrySettings, GiveAnEmptyValueAsItsTerminator) {
    settings("[SOFTWARE\\Kelmora\\KelmoraID]\nADRSURL=\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_SUCCESS);
    EXPECT_EQ(value, u"");
    EXPECT_EQ(size, 2U);
}

TEST_F(RegistrySettings, TellWhatIsMissingInOneWay) {
    EXPECT_EQ(read(u"ADRSURL"), ERROR_FILE_NOT_FOUND);  // no file
    settings("[Other]\nADRSURL=x\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_FILE_NOT_FOUND);  // no key
    settings("[SOFTWARE\\Kelmora\\KelmoraID]\nOther=x\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_FILE_NOT_FOUND);  // no value
    settings("ADRSURL=x\n");
    EXPECT_EQ(read(u"ADRSURL"), ERROR_FILE_NOT_FOUND);  // under no key
}

TEST_F(RegistrySettings, TellTheBytesNeeded) {
    settings("[SOFTWARE\\Kelmora\\KelmoraID]\nADRSURL=abcd\n");
    WCHAR buffer[4] = {u'#'};
    DWORD size = 8;
    EXPECT_EQ(
        RegGetValueW(HKEY_LOCAL_MACHINE, key, u"ADRSURL", RRF_RT_REG_SZ, nullptr, buffer, &size),
        ERROR_MORE_DATA);
    EXPECT_EQ(size, 10U);
}

TEST_F(RegistrySettings, RefuseOtherRootsAndRestrictions) {
    DWORD size = 0;
    for (const HKEY root : {static_cast<HKEY>(nullptr), HKEY_LOCAL_MACHINE}) {
        EXPECT_EQ(RegGetValueW(root, key, u"A", root == nullptr ? RRF_RT_REG_SZ : 0x10, nullptr,
                               nullptr, &size),
                  ERROR_INVALID_PARAMETER);
    }
}

}  // namespace
