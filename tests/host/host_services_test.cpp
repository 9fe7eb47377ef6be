// The host's own services: the texts of its messages, the current-folder service and the
// installed packages.

#include <cerrno>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <foundation/core/except/message_catalog.hpp>
#include <foundation/core/except/message_exception.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/packages/package_registry.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

#include "host/current_folder_guard.hpp"
#include "host/message_ids.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::PackageRegistry;
using foundation::core::except::Notification;
using resource_core::FormatMessage;
using resource_core::MessageRecord;
using Velmora::current_working_folder::CurrentWorkingFolder;
using Velmora::current_working_folder::FailedToAbsolutizeException;
using Velmora::text::FromNative;
using Velmora::VorlanComponents::ComponentIdentifier;
using Velmora::VorlanComponents::ComponentVersion;
using Velmora::VorlanComponents::UniqueID;
using vpath_test::FaultSystem;

// Messages: their texts in the catalogue.

TEST(MessageCatalog, EveryMessageOfTheLibraryAndTheHostHasItsText) {
    // A name that is not UTF-8 comes out as the bytes it was.
    const ustring f = u"F\xDCFF";
    const MessageRecord messages[] = {
        VORLAN::vpath::invalidLocation(f),
        VORLAN::vpath::directoryPermissionDenied(f),
        VORLAN::vpath::nameNonexistentOrNotADirectory(f),
        VORLAN::vpath::directoryNameTooLong(f),
        VORLAN::vpath::cannotAbsolutizePath(f),
        VORLAN::rmpath::DirNotFound(f),
        VELMORA::searchpath::folderMissing(f),
        VELMORA::searchpath::notAFolder(f),
        VELMORA::searchpath::folderUnreadable(f, "R"),
        VELMORA::searchpath::folderLoops(f),
        VELMORA::pathdef::cannotRead(f, "R"),
        VELMORA::pathdef::cannotSave(f, "R"),
        VELMORA::pathdef::badLine(f, 12),
        VELMORA::pathdef::lineBreakInName(f),
        VELMORA::packages::badManifest(f, "R"),
        VELMORA::packages::cannotReadPackages(f, "R"),
    };
    std::set<std::string> ids;
    for (const auto& message : messages) {
        SCOPED_TRACE(message.GetMessageID());
        ids.insert(message.GetMessageID());
        // A text of its own, every argument in it and no place left unfilled.
        const std::string text = Velmora::text::ToNative(FormatMessage(message));
        EXPECT_TRUE(resource_core::FindMessageText(message.GetMessageID()));
        EXPECT_NE(text.find("\"F\xFF\""), std::string::npos) << text;
        EXPECT_EQ(resource_core::FormatMessageLine(message),
                  text + " [" + message.GetMessageID() + "]");
        if (message.GetArguments().size() > 1) {
            EXPECT_NE(text.find(message.GetIdentifier() == "badLine" ? "12" : "R"),
                      std::string::npos);
        }
        EXPECT_EQ(text.find('{'), std::string::npos) << text;
    }
    // And the catalogue holds nothing else.
    const auto catalog = resource_core::CatalogMessageIDs();
    EXPECT_EQ(std::set<std::string>(catalog.begin(), catalog.end()), ids);
}

// The current-folder service: what a typed folder resolves to, and the code of every failure.

// The code and error number that absolutize(text) fails with, or {-100, 0} if it does not fail.
std::pair<int, int> FailureOf(const ustring& text) {
    try {
        CurrentWorkingFolder().absolutize(text);
    } catch (const FailedToAbsolutizeException& e) {
        EXPECT_EQ(e.GetText(), text);
        return {e.GetErrorCode(), e.GetErrorNumber()};
    }
    return {-100, 0};
}

using Absolutize = vpath_test::TempTreeTest;

TEST_F(Absolutize, ResolvesTextsAgainstTheCurrentFolder) {
    tree.Folder("tb");
    tree.Folder("d\xFF");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    const ustring root = FromNative(tree.Root().string());
    const CurrentWorkingFolder cwf;
    const std::pair<ustring, std::string> cases[] = {
        {u"tb", "tb"}, {u"./tb/", "tb"},       {u"tb/../d\xDCFF", "d\xFF"},
        {u".", ""},    {root + u"//tb", "tb"}, {u"file://" + root + u"/tb/../tb", "tb"},
    };
    for (const auto& [text, folder] : cases)
        EXPECT_EQ(cwf.absolutize(text), tree.IRI(folder)) << Velmora::text::ToNative(text);
    // resolve does not look beyond the current folder.
    EXPECT_EQ(cwf.resolve(u"missing/..//x"), tree.IRI("x"));
}

TEST_F(Absolutize, EveryFailureHasItsCode) {
    tree.File("file.vl");
    tree.Folder("target");
    tree.Link("loop_a", "loop_b");
    tree.Link("loop_b", "loop_a");
    const vpath_test::CurrentFolderGuard guard(tree.Root());
    // Texts that name no folder on disk; "%2F" is a name that no local path can hold.
    const std::pair<ustring, int> texts[] = {
        {u"", 0},        {ustring(u"a\0b", 3), 0}, {u"http://host/tb", 0}, {u"file:///a?query", 0},
        {u"missing", 4}, {u"file:///a%2Fb", 4},    {u"file.vl/x", 5},      {u"loop_a", 6},
        {u"file.vl", 7}, {ustring(300, u'n'), 9},
    };
    for (const auto& [text, code] : texts)
        EXPECT_EQ(FailureOf(text).first, code) << Velmora::text::ToNative(text);
    const ustring target = FromNative(tree.Path("target").string());
    // Errors of the system, by their number.
    const std::pair<int, int> errors[] = {{EACCES, 3},  {EPERM, 3},     {ENOENT, 4},
                                          {ENOTDIR, 5}, {ELOOP, 6},     {ENAMETOOLONG, 9},
                                          {EIO, 1},     {EOVERFLOW, 8}, {ENOMEM, 8}};
    for (const auto& [error, code] : errors) {
        FaultSystem faults;
        faults.Fail(FaultSystem::Op::Stat, "/target", error);
        EXPECT_EQ(FailureOf(target), std::make_pair(code, error));
    }
    // An unreadable current folder fails relative texts only.
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::CurrentFolder, "", ENOENT);
    EXPECT_EQ(FailureOf(u"target"), std::make_pair(2, ENOENT));
    EXPECT_EQ(FailureOf(target).first, -100);
}

// Installed packages: identifiers, manifests and the registry read from a packages folder.

constexpr const char* kId = "4f1c0e9a-3b2d-4c5e-8f70-112233445566";

TEST(ComponentIdentifier, ParsesUUIDsAndVersionsStrictly) {
    // Either case in, lower case out; nothing but the 8-4-4-4-12 form.
    EXPECT_EQ(UniqueID::Parse("4F1C0E9A-3b2d-4C5E-8f70-112233445566")->ToString(), kId);
    for (const char* bad :
         {"4f1c0e9a3b2d4c5e8f70112233445566", "4f1c0e9a-3b2d-4c5e-8f7-0112233445566",
          "4f1c0e9a-3b2d-4c5e-8f70-11223344556g", "4f1c0e9a-3b2d-4c5e-8f70-11223344556"})
        EXPECT_FALSE(UniqueID::Parse(bad)) << bad;
    // Missing parts of a version are 0.
    EXPECT_EQ(ComponentVersion::Parse("1.2"), (ComponentVersion{1, 2, 0}));
    for (const char* bad : {"", "1.", "1..2", "1.2.3.4", "1.x", "+1", "99999999999"})
        EXPECT_FALSE(ComponentVersion::Parse(bad)) << bad;
}

class PackagesFolder : public vpath_test::TempTreeTest {
  protected:
    void Manifest(const std::string& package, const std::string& json) {
        tree.File("packages/" + package + "/package.json", json);
    }
    std::shared_ptr<const PackageRegistry> Load(Notification& problems) {
        return PackageRegistry::Load(tree.IRI("packages"), problems);
    }
};

TEST_F(PackagesFolder, ReadsEveryGoodManifestAndReportsEveryBadOneOrUnreadableOne) {
    Manifest("signal", std::string(R"({"id": ")") + kId + R"(", "version": "1.2",
        "name": "Signal", "usable": false, "manualInstall": true,
        "folders": [{"path": "tb", "tags": [0, 7]}, {"path": "./", "tags": []}, {"path": "doc/x"}],
        "properties": {"ManualInstall": true, "Level": -3, "Ratio": 0.5, "Note": "caf\u00e9"}})");
    Manifest("plain", R"({"id": "00000000-0000-0000-0000-000000000001", "version": "2"})");
    tree.Folder("packages/not_a_package");
    {
        // An unreadable manifest is skipped; an unreadable packages folder gives no packages.
        vpath_test::FaultSystem faults;
        faults.Fail(vpath_test::FaultSystem::Op::ReadFile, "/plain/package.json", EACCES);
        Notification problems;
        EXPECT_EQ(Load(problems)->GetPackages().size(), 1u);
        ASSERT_EQ(problems.size(), 1u);
        EXPECT_EQ(std::get<std::string>(problems.GetMessages()[0]->GetArguments()[1]),
                  Velmora::os::ErrorText(EACCES));
        faults.Fail(vpath_test::FaultSystem::Op::ListFolder, "/packages", EACCES);
        Notification none;
        EXPECT_TRUE(Load(none)->GetPackages().empty());
        EXPECT_EQ(vpath_test::IdsOf(none), vpath_test::Ids{"VELMORA:packages:cannotReadPackages"});
    }
    const char* const bad[] = {
        R"({"id": )",
        R"([1, 2])",
        R"({"version": "1"})",
        R"({"id": "xyz", "version": "1"})",
        R"({"id": "00000000-0000-0000-0000-000000000002", "version": "1.b"})",
        R"({"id": "00000000-0000-0000-0000-000000000003", "version": "1", "colour": 1})",
        R"({"id": "00000000-0000-0000-0000-000000000004", "version": "1", "usable": "yes"})",
        R"({"id": "00000000-0000-0000-0000-000000000005", "version": "1", "folders": [{"path": "../x"}]})",
        R"({"id": "00000000-0000-0000-0000-000000000006", "version": "1", "folders": [{"path": "/x"}]})",
        R"({"id": "00000000-0000-0000-0000-000000000007", "version": "1", "folders": [{"path": "x", "tags": [-1]}]})",
        R"({"id": "00000000-0000-0000-0000-000000000008", "version": "1", "properties": {"a": [1]}})",
        R"({"id": "00000000-0000-0000-0000-000000000001", "version": "2.0.0"})",  // same as plain
    };
    for (std::size_t i = 0; i < std::size(bad); ++i)
        Manifest("z" + std::to_string(i), bad[i]);

    Notification problems;
    const auto registry = Load(problems);
    ASSERT_EQ(problems.size(), std::size(bad));
    for (const auto& message : problems) {
        // Each bad manifest is named.
        EXPECT_EQ(message->GetMessageID(), "VELMORA:packages:badManifest");
        EXPECT_NE(Velmora::text::ToNative(std::get<ustring>(message->GetArguments()[0]))
                      .find("/packages/z"),
                  std::string::npos)
            << std::get<std::string>(message->GetArguments()[1]);
    }
    ASSERT_EQ(registry->GetPackages().size(), 2u);
    // Every field of a full manifest; folders under the package's root.
    const auto signal =
        registry->FindPackage(ComponentIdentifier(*UniqueID::Parse(kId), {1, 2, 0}));
    ASSERT_TRUE(signal);
    EXPECT_EQ(signal->GetIdentifier().GetName(), u"Signal");
    EXPECT_FALSE(signal->IsUsable());
    EXPECT_TRUE(signal->IsManualInstall());
    EXPECT_EQ(signal->GetRootFolder(), tree.IRI("packages/signal"));
    const auto& folders = *signal->GetFolders();
    ASSERT_EQ(folders.size(), 3u);
    EXPECT_EQ(folders[0].folder, tree.IRI("packages/signal/tb"));
    EXPECT_EQ(folders[0].tags, (TagSet{0, 7}));
    EXPECT_EQ(folders[1].folder, tree.IRI("packages/signal"));
    EXPECT_EQ(folders[2].folder, tree.IRI("packages/signal/doc/x"));
    EXPECT_TRUE(folders[2].tags.empty());
    EXPECT_EQ(signal->GetProperty("ManualInstall"), PropertyValue(true));
    EXPECT_EQ(signal->GetProperty("Level"), PropertyValue(std::int64_t{-3}));
    EXPECT_EQ(signal->GetProperty("Ratio"), PropertyValue(0.5));
    EXPECT_EQ(signal->GetProperty("Note"), PropertyValue(ustring(u"caf\u00e9")));
    EXPECT_FALSE(signal->GetProperty("Missing"));
    // Another version of a known package is not known; defaults fill what a manifest leaves
    // out.
    EXPECT_FALSE(registry->FindPackage(ComponentIdentifier(*UniqueID::Parse(kId), {1, 2, 1})));
    const auto plain = registry->GetPackages()[0];
    EXPECT_EQ(plain->GetIdentifier().GetName(), u"plain");
    EXPECT_TRUE(plain->IsUsable());
    EXPECT_FALSE(plain->IsManualInstall());
    EXPECT_TRUE(plain->GetFolders()->empty());
}

}  // namespace
