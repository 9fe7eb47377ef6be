// Installed packages: identifiers, manifests and the registry read from a packages folder.

#include <cerrno>

#include <gtest/gtest.h>

#include <velmora/packages/package_registry.hpp>

#include "host/message_ids.hpp"
#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::Notification;
using namespace Velmora::PackageRegistry;
using Velmora::VorlanComponents::ComponentIdentifier;
using Velmora::VorlanComponents::ComponentVersion;
using Velmora::VorlanComponents::UniqueID;

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
