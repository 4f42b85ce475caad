// The choice of the texts by the user's language.
#include "shell/texts.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "client/agent_client.h"

namespace vlk::agent {
namespace {

constexpr std::uint16_t kEnglishUs = 0x0409;
constexpr std::uint16_t kIcelandicIceland = 0x040F;

TEST(Texts, AreIcelandicIfThePrimaryLanguageIsIcelandicAndElseEnglish) {
  const UiTexts& english = texts_for_language(kEnglishUs);
  const UiTexts& icelandic = texts_for_language(kIcelandicIceland);
  for (std::uint32_t language = 0; language <= 0xFFFF; ++language) {
    const UiTexts& expected = language % 0x400 == 15 ? icelandic : english;
    ASSERT_EQ(&texts_for_language(static_cast<std::uint16_t>(language)), &expected) << language;
  }
}

// The expected letters are written as code points, so that a source file in a wrong encoding is detected.
TEST(Texts, LettersOutsideAsciiAreCorrect) {
  const UiTexts& english = texts_for_language(kEnglishUs);
  const UiTexts& icelandic = texts_for_language(kIcelandicIceland);
  EXPECT_TRUE(english.title == std::wstring(L"Maravek Remote Support"));
  EXPECT_TRUE(icelandic.title == std::wstring(L"Maravek Fjara\u00F0sto\u00F0"));
  EXPECT_TRUE(english.status_connecting == std::wstring(L"Connecting\u2026"));
  EXPECT_TRUE(english.status_online == std::wstring(L"Online \u2014 ready for support"));
  EXPECT_TRUE(icelandic.status_offline == std::wstring(L"\u00D3tengdur"));
  EXPECT_TRUE(icelandic.status_in_session == std::wstring(L"Fjara\u00F0sto\u00F0 \u00ED gangi"));
  EXPECT_TRUE(icelandic.name_label == std::wstring(L"Skipsnafn/Skipsn\u00FAmer:"));
  EXPECT_TRUE(icelandic.menu_exit == std::wstring(L"H\u00E6tta"));
  EXPECT_TRUE(
      icelandic.consent_suffix ==
      std::wstring(L" fr\u00E1 Maravek \u00F3skar eftir a\u00F0 tengjast t\u00F6lvunni \u00FEinni.\n\n"
                   L"Leyfa \u00FEessa fjara\u00F0sto\u00F0?"));
}

TEST(Texts, ConsentPromptHasTheProgramsTitleAndTwoParagraphs) {
  for (const std::uint16_t language : {kEnglishUs, kIcelandicIceland}) {
    const UiTexts& texts = texts_for_language(language);
    EXPECT_TRUE(std::wstring(texts.consent_title) == texts.title);
    const std::wstring suffix = texts.consent_suffix;
    EXPECT_EQ(suffix.front(), L' ');
    EXPECT_NE(suffix.find(L".\n\n"), std::wstring::npos);
  }
}

TEST(Texts, EachStatusHasATextAndUnknownStatusValuesHaveNone) {
  for (const std::uint16_t language : {kEnglishUs, kIcelandicIceland}) {
    const UiTexts& texts = texts_for_language(language);
    EXPECT_EQ(status_text(texts, static_cast<std::int32_t>(Status::Offline)), texts.status_offline);
    EXPECT_EQ(status_text(texts, static_cast<std::int32_t>(Status::Connecting)), texts.status_connecting);
    EXPECT_EQ(status_text(texts, static_cast<std::int32_t>(Status::Online)), texts.status_online);
    EXPECT_EQ(status_text(texts, static_cast<std::int32_t>(Status::InSession)), texts.status_in_session);
    for (const std::int32_t other : {-1, 4, 9999, INT32_MIN, INT32_MAX}) {
      EXPECT_TRUE(std::wstring(status_text(texts, other)).empty()) << other;
    }
    std::set<std::wstring> all;
    for (std::int32_t status = 0; status <= 3; ++status)
      all.insert(status_text(texts, status));
    EXPECT_EQ(all.size(), 4u);
  }
}

}  // namespace
}  // namespace vlk::agent
