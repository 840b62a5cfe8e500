#include <VeltoConnectFoundation/Platform/Base64.h>

#include <gtest/gtest.h>

#include <random>

namespace {

using velto::Base64Form;
using velto::decodeBase64;
using velto::encodeBase64;

TEST(Base64, FormsOfTheSameBytes) {
    const std::string sixtyFour(64, 'A');
    const struct {
        std::string bytes;
        std::string plain;
        std::string lines;
        std::string url;
    } rows[] = {
        {"", "", "", ""},
        {"f", "Zg==", "Zg==", "Zg"},
        {"fo", "Zm8=", "Zm8=", "Zm8"},
        {"foo", "Zm9v", "Zm9v", "Zm9v"},
        {"\xfb\xff\xfe", "+//+", "+//+", "-__-"},
        {std::string(48, '\0'), sixtyFour, sixtyFour, sixtyFour},
        {std::string(49, '\0'), sixtyFour + "AA==", sixtyFour + "\r\nAA==", sixtyFour + "AA"},
        {std::string(96, '\0'), sixtyFour + sixtyFour, sixtyFour + "\r\n" + sixtyFour,
         sixtyFour + sixtyFour},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.plain);
        const std::pair<Base64Form, std::string> forms[] = {{Base64Form::plain, row.plain},
                                                            {Base64Form::lines64, row.lines},
                                                            {Base64Form::url, row.url}};
        for (const auto& [form, text] : forms) {
            EXPECT_EQ(encodeBase64(row.bytes, form), text);
            const auto back = decodeBase64(text, form);
            ASSERT_TRUE(back.has_value()) << text;
            EXPECT_EQ(back->view(), row.bytes);
        }
    }
}

TEST(Base64, WhatIsNotOfTheFormIsRefused) {
    const std::pair<Base64Form, const char*> rows[] = {
        {Base64Form::plain, "Zg"},      {Base64Form::plain, "Zg="},
        {Base64Form::plain, "Zh=="},    {Base64Form::plain, "Zm9="},
        {Base64Form::plain, "===="},    {Base64Form::plain, "Zg==Zg=="},
        {Base64Form::plain, "Z==="},    {Base64Form::plain, "Zm9v\n"},
        {Base64Form::plain, " Zm9v"},   {Base64Form::plain, "-__-"},
        {Base64Form::plain, "Zm9\xc3"}, {Base64Form::lines64, "Zm 9v"},
        {Base64Form::url, "Zg=="},      {Base64Form::url, "+//+"},
        {Base64Form::url, "Zh"},        {Base64Form::url, "Z"},
    };
    for (const auto& [form, text] : rows) {
        EXPECT_FALSE(decodeBase64(text, form).has_value()) << text;
    }
}

TEST(Base64, RandomBytesComeBackAcrossTheBlocksOfTheLibraryBelow) {
    std::mt19937_64 random(20240607);
    std::string bytes((std::size_t{3} << 20) + 5, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    for (const auto form : {Base64Form::plain, Base64Form::lines64, Base64Form::url}) {
        const auto back = decodeBase64(encodeBase64(bytes, form), form);
        ASSERT_TRUE(back.has_value());
        EXPECT_TRUE(back->view() == bytes);
    }
}

}  // namespace
