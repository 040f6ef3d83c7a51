#include "platform/runtime/native_path.h"

#include "platform/runtime/os_error.h"
#include "tests/support/temp_directory.h"

#include <ace/OS_NS_errno.h>

#include <filesystem>
#include <gtest/gtest.h>

#include <windows.h>

namespace fs = std::filesystem;

namespace
{

/// The native form; the failure's number in brackets where there is none.
std::wstring native(const char* path)
{
    std::wstring result = L"<untouched>";
    ACE_OS::last_error(0);
    if (to_native_path(path, result))
        return result;
    return L"[" + std::to_wstring(ACE_OS::last_error()) + L"]";
}

std::wstring wide(std::string_view text)
{
    std::wstring result;
    ACE_OS::last_error(0);
    if (utf8_to_wide(text, result))
        return result;
    return L"[" + std::to_wstring(ACE_OS::last_error()) + L"]";
}

const std::wstring no_translation = L"[1113]";
const std::wstring invalid_name = L"[123]";

/// Runs a piece of a test in another current directory.
class Current_Directory
{
public:
    explicit Current_Directory(const fs::path& path) { fs::current_path(path); }
    ~Current_Directory() { fs::current_path(old_); }
    Current_Directory(const Current_Directory&) = delete;
    Current_Directory& operator=(const Current_Directory&) = delete;

private:
    fs::path old_ = fs::current_path();
};

TEST(Native_Text, EveryLengthOfACharacterGoesBothWays)
{
    const std::pair<std::string, std::wstring> pairs[] = {
        {"", L""},
        {"plain", L"plain"},
        {"\x7F", L"\x7F"},
        {"\xC2\x80", L"\x80"},
        {"\xDF\xBF", L"\x7FF"},
        {"\xE0\xA0\x80", L"\x800"},
        {"\xED\x9F\xBF", L"\xD7FF"},
        {"\xEE\x80\x80", L"\xE000"},
        {"\xEF\xBF\xBF", L"\xFFFF"},
        {"\xF0\x90\x80\x80", L"\xD800\xDC00"},
        {"\xF0\x9F\x92\xBE", L"\xD83D\xDCBE"},
        {"\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"},
        {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
        {"\xE5\xA4\x87 / \xC3\xA4", L"\x5907 / \xE4"},
    };
    for (const auto& [text, units] : pairs) {
        EXPECT_EQ(wide(text), units) << text;
        EXPECT_EQ(wide_to_utf8(units), text) << text;
    }
}

TEST(Native_Text, EveryUnitComesBackAsItWas)
{
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        const std::wstring units(1, static_cast<wchar_t>(unit));
        ASSERT_EQ(wide(wide_to_utf8(units)), units) << unit;
    }
}

TEST(Native_Text, HalvesOfPairsAloneComeBackAsTheyWere)
{
    for (const std::wstring& units :
         {std::wstring(L"\xD800"), std::wstring(L"\xDFFF"), std::wstring(L"a\xD83Dz"),
          std::wstring(L"\xDC00\xD800"), std::wstring(L"\xD800\xD800\xDC00"),
          std::wstring(L"\xD800\xDC00\xDC00"), std::wstring(L"\xDBFF\xDBFF")})
        EXPECT_EQ(wide(wide_to_utf8(units)), units);
    EXPECT_EQ(wide_to_utf8(L"\xD83D"), "\xED\xA0\xBD");
    EXPECT_EQ(wide_to_utf8(L"\xDCBE"), "\xED\xB2\xBE");
}

TEST(Native_Text, AWholePairHasOneSpellingOnly)
{
    // As two characters of three bytes each.
    EXPECT_EQ(wide("\xED\xA0\xBD\xED\xB2\xBE"), no_translation);
    EXPECT_EQ(wide("a\xED\xA0\x80\xED\xB0\x80"), no_translation);
    EXPECT_EQ(wide("\xED\xB2\xBE\xED\xA0\xBD"), L"\xDCBE\xD83D") << "the other way round is none";
    EXPECT_EQ(wide("\xF0\x9F\x92\xBE\xED\xB2\xBE"), L"\xD83D\xDCBE\xDCBE")
        << "the first is paired already";
}

TEST(Native_Text, WhatIsNotUTF8IsRefused)
{
    const char* const texts[] = {
        "\x80",
        "\xBF",
        "a\xFF",
        "\xFE",
        "\xC3",
        "\xC3z",
        "\xE5\xA4",
        "\xE5\xA4z",
        "\xE5z\xA4",
        "\xF0\x9F\x92",
        "\xF0\x9F\x92z",
        "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80",
        // longer than they need to be
        "\xC0\x80",
        "\xC1\xBF",
        "\xE0\x80\x80",
        "\xE0\x9F\xBF",
        "\xF0\x80\x80\x80",
        "\xF0\x8F\xBF\xBF",
        "\xC0\xAF",
        "\xE0\x80\xAF",
    };
    for (const char* const text : texts) {
        EXPECT_EQ(wide(text), no_translation) << text;
        EXPECT_EQ(native((std::string("C:\\") + text).c_str()), no_translation) << text;
    }
}

TEST(Native_Path, AbsolutePathsGetTheFormThatIsNotEdited)
{
    EXPECT_EQ(native("C:\\dir\\name"), L"\\\\?\\C:\\dir\\name");
    EXPECT_EQ(native("C:/dir/name"), L"\\\\?\\C:\\dir\\name");
    EXPECT_EQ(native("c:/"), L"\\\\?\\c:\\");
    EXPECT_EQ(native("C:/\xC3\xA4/\xF0\x9F\x92\xBE"), L"\\\\?\\C:\\\xE4\\\xD83D\xDCBE");
}

TEST(Native_Path, SeparatorsAreOneAndNoneIsLeftBehind)
{
    EXPECT_EQ(native("C:\\\\dir//name\\/\\"), L"\\\\?\\C:\\dir\\name");
    EXPECT_EQ(native("C://"), L"\\\\?\\C:\\");
}

TEST(Native_Path, DotsAreResolvedByName)
{
    EXPECT_EQ(native("C:/a/./b/."), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(native("C:/a/b/../c"), L"\\\\?\\C:\\a\\c");
    EXPECT_EQ(native("C:/a/.."), L"\\\\?\\C:\\");
    EXPECT_EQ(native("C:/../../a"), L"\\\\?\\C:\\a") << "the root is its own parent";
    EXPECT_EQ(native("C:/a/b/../../../../c"), L"\\\\?\\C:\\c");
    EXPECT_EQ(native("C:/missing/../a"), L"\\\\?\\C:\\a") << "nothing is asked of the system";
    EXPECT_EQ(native("C:/.../..a/a.."), L"\\\\?\\C:\\...\\..a\\a..") << "those are names";
}

TEST(Native_Path, SharesHaveARootOfTheirOwn)
{
    EXPECT_EQ(native("\\\\server\\share\\dir"), L"\\\\?\\UNC\\server\\share\\dir");
    EXPECT_EQ(native("//server/share/dir"), L"\\\\?\\UNC\\server\\share\\dir");
    EXPECT_EQ(native("//server/share"), L"\\\\?\\UNC\\server\\share\\");
    EXPECT_EQ(native("//server/share/../../x"), L"\\\\?\\UNC\\server\\share\\x");
    for (const char* const path : {"\\\\", "\\\\server", "\\\\server\\", "\\\\\\share",
                                   "//server//share", "///server/share"})
        EXPECT_EQ(native(path), invalid_name) << path;
}

TEST(Native_Path, FormsOfTheSystemItselfStandUnderTheSameRules)
{
    EXPECT_EQ(native("\\\\?\\C:\\a/../b"), L"\\\\?\\C:\\b");
    EXPECT_EQ(native("\\\\.\\C:\\a\\.\\name."), L"\\\\?\\C:\\a\\name.");
    EXPECT_EQ(native("//?/C:/a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(native("\\\\?\\UNC\\server\\share/x"), L"\\\\?\\UNC\\server\\share\\x");
    for (const char* const path :
         {"\\\\?\\C:\\what?", "\\\\.\\C:\\a:stream", "\\\\?\\UNC\\server", "\\\\?\\",
          "\\\\.\\..\\x", "\\\\server\\..\\x", "\\\\server\\sh:x\\f"})
        EXPECT_EQ(native(path), invalid_name) << path;
}

TEST(Native_Path, VolumesAndDevicesKeepTheirPrefix)
{
    EXPECT_EQ(native("\\\\.\\pipe\\name"), L"\\\\.\\pipe\\name");
    EXPECT_EQ(native("\\\\.\\PhysicalDrive0"), L"\\\\.\\PhysicalDrive0");
    EXPECT_EQ(native("\\\\?\\Volume{1}/a/../b"), L"\\\\?\\Volume{1}\\b");
    EXPECT_EQ(native("\\\\?\\Volume{1}\\"), L"\\\\?\\Volume{1}\\");
    EXPECT_EQ(native("\\\\?\\Volume{1}"), L"\\\\?\\Volume{1}");
    EXPECT_EQ(from_native_path(L"\\\\?\\Volume{1}\\b"), "\\\\?\\Volume{1}\\b");
}

TEST(Native_Path, RelativePathsStartAtTheCurrentDirectory)
{
    const Temp_Directory root;
    fs::create_directory(root / "dir");
    const Current_Directory current(root / "dir");
    const std::wstring here = native((root / "dir").c_str());
    EXPECT_EQ(native("name"), here + L"\\name");
    EXPECT_EQ(native("a/b"), here + L"\\a\\b");
    EXPECT_EQ(native("."), here);
    EXPECT_EQ(native(".."), native(root.str().c_str()));
    EXPECT_EQ(native("../x"), native((root / "x").c_str()));
}

TEST(Native_Path, PathsWithoutADriveAndDrivesWithoutARootAreThoseOfTheProcess)
{
    const Temp_Directory root;
    const Current_Directory current(root.path());
    const std::string drive = root.str().substr(0, 2);
    ASSERT_EQ(drive[1], ':');
    const std::wstring root_of_drive = L"\\\\?\\" + fs::path(drive).wstring() + L"\\";
    EXPECT_EQ(native("\\name"), root_of_drive + L"name");
    EXPECT_EQ(native("/name/below"), root_of_drive + L"name\\below");
    EXPECT_EQ(native("\\"), root_of_drive);
    EXPECT_EQ(native("/.."), root_of_drive);
    EXPECT_EQ(native((drive + "name").c_str()), native((root / "name").c_str()));
    EXPECT_EQ(native(drive.c_str()), native(root.str().c_str()));
    EXPECT_EQ(native((drive + "..").c_str()), native(root.path().parent_path().string().c_str()));
}

TEST(Native_Path, NamesThatTheSystemRedirectsOrShortensAreNames)
{
    for (const char* const name : {"CON", "con", "NUL", "aux.txt", "COM1", "LPT9.tar.gz", "CONIN$",
                                   "trailing dot.", "trailing space ", "...", " "})
    {
        const std::string path = std::string("C:\\dir\\") + name;
        EXPECT_EQ(native(path.c_str()), L"\\\\?\\" + fs::path(path).wstring()) << name;
    }
}

TEST(Native_Path, CharactersThatNoNameMayHoldAreRefused)
{
    for (const char forbidden : std::string("<>:\"|?*\x01\t\n\x1F")) {
        const std::string name = std::string("a") + forbidden + "b";
        EXPECT_EQ(native(("C:\\dir\\" + name).c_str()), invalid_name) << name;
        EXPECT_EQ(native(("C:\\" + name + "\\below").c_str()), invalid_name) << name;
        EXPECT_EQ(native(("\\\\server\\share\\" + name).c_str()), invalid_name) << name;
    }
    EXPECT_EQ(native("C:\\file:stream"), invalid_name) << "the hidden stream of another file";
    EXPECT_EQ(native("C:\\file::$DATA"), invalid_name);
    EXPECT_EQ(native("C:\\C:\\x"), invalid_name);
    EXPECT_NE(native("C:\\dir\\\x7F"), invalid_name);
}

TEST(Native_Path, EmptyAndNullPathsAreRefused)
{
    EXPECT_EQ(native(""), L"[3]");
    EXPECT_EQ(native(nullptr), L"[87]");
}

TEST(Native_Path, LongNamesAndPathsAreNotShortened)
{
    const std::string name(300, 'n');
    std::string path = "C:";
    std::wstring expected = L"\\\\?\\C:";
    for (int i = 0; i < 50; ++i) {
        path += '/' + name;
        expected += L'\\' + std::wstring(300, L'n');
    }
    EXPECT_EQ(native(path.c_str()), expected);
}

TEST(Native_Path, NamesComeBackWithoutThePrefix)
{
    EXPECT_EQ(from_native_path(L"\\\\?\\C:\\dir\\name"), "C:\\dir\\name");
    EXPECT_EQ(from_native_path(L"\\\\?\\UNC\\server\\share\\x"), "\\\\server\\share\\x");
    EXPECT_EQ(from_native_path(L"C:\\dir"), "C:\\dir");
    EXPECT_EQ(from_native_path(L"name"), "name");
    EXPECT_EQ(from_native_path(L""), "");
    EXPECT_EQ(from_native_path(L"\\\\?\\C:\\\xE4\xD800"), "C:\\\xC3\xA4\xED\xA0\x80");
    for (const char* const path : {"C:\\a\\b", "\\\\server\\share\\a"})
        EXPECT_EQ(from_native_path(native(path)), path);
}

TEST(Native_Path, TheReasonIsLeftAndTheResultUntouchedByAFailure)
{
    std::wstring result = L"old";
    EXPECT_FALSE(to_native_path("C:\\a*", result));
    EXPECT_EQ(result, L"old");
    EXPECT_EQ(ACE_OS::last_error(), os_error::invalid_name);
}

} // namespace
