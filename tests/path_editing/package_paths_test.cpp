// Which packages are on the path, and which folders packages put on it.

#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/pathmanagement/path_editing.hpp>

#include "path_editing/editing_fakes.hpp"

namespace {

using namespace Velmora::PathManagement;
using Velmora::PackageRegistry::Package;
using Velmora::PackageRegistry::PropertyValue;
using Velmora::VorlanComponents::ComponentIdentifier;
using Velmora::VorlanComponents::ComponentVersion;
using Velmora::VorlanComponents::UniqueID;
using vpath_test::AbsoluteIRI;

ComponentIdentifier Id(std::uint8_t n, std::uint32_t major) {
    UniqueID id;
    id.bytes[15] = n;
    return ComponentIdentifier(id, ComponentVersion{major, 0, 0});
}

struct PackageShape {
    ComponentIdentifier id;
    bool usable = true;
    bool manual = false;
    std::vector<std::pair<const char16_t*, Velmora::PackageRegistry::TagSet>> folders;
    std::optional<PropertyValue> manualInstall;
};

std::shared_ptr<const Velmora::PackageRegistry::IPackage> Make(const PackageShape& shape) {
    Package::Parts parts;
    parts.identifier = shape.id;
    parts.usable = shape.usable;
    parts.manualInstall = shape.manual;
    for (const auto& [folder, tags] : shape.folders)
        parts.folders.push_back({AbsoluteIRI(folder), tags});
    if (shape.manualInstall)
        parts.properties.emplace("ManualInstall", *shape.manualInstall);
    parts.root =
        AbsoluteIRI(u"file:///pkgs/" +
                    Velmora::text::FromNative(std::to_string(shape.id.GetUniqueID().bytes[15])));
    return std::make_shared<const Package>(std::move(parts));
}

TEST(PackageIsOnPath, MatchesUniqueIdAndThenVersion) {
    vpath_test::RecordingManager manager;
    {
        // Nothing on the path.
        EXPECT_FALSE(PackageIsOnPath(Id(1, 1), manager));
    }
    manager.packages =
        std::make_shared<const std::vector<ComponentIdentifier>>(std::vector{Id(1, 1), Id(2, 3)});
    {
        // Both must match: another version of a package on the path is not on it.
        EXPECT_TRUE(PackageIsOnPath(Id(1, 1), manager));
        EXPECT_TRUE(PackageIsOnPath(Id(2, 3), manager));
        EXPECT_FALSE(PackageIsOnPath(Id(1, 3), manager));
        EXPECT_FALSE(PackageIsOnPath(Id(3, 1), manager));
    }
}

TEST(GetPathFoldersForPackages, CollectsTheFoldersEachKindOfPackagePutsOnThePath) {
    const Velmora::PackageRegistry::PackageRegistry registry({
        Make({Id(1, 1),
              true,
              false,
              {{u"file:///p1/a", {0}}, {u"file:///p1/doc", {3}}, {u"file:///p1/b", {2, 0, 5}}},
              std::nullopt}),
        Make({Id(2, 1), false, false, {{u"file:///p2/a", {0}}}, std::nullopt}),  // unusable
        Make({Id(3, 1), true, true, {{u"file:///p3/a", {0}}}, PropertyValue(true)}),
        Make({Id(4, 1), true, true, {}, PropertyValue(false)}),
        Make({Id(5, 1), true, true, {}, std::nullopt}),                              // no property
        Make({Id(6, 1), true, false, {{u"file:///p6/doc", {1, 3}}}, std::nullopt}),  // no tag 0
        Make({Id(7, 1), true, true, {}, PropertyValue(std::int64_t{1})}),  // not a boolean
    });
    {
        // Package by package, folders in manifest order, duplicates kept; unknown ones skipped.
        const std::vector components = {Id(1, 1), Id(9, 1), Id(1, 2), Id(2, 1), Id(3, 1),
                                        Id(4, 1), Id(5, 1), Id(6, 1), Id(1, 1)};
        EXPECT_EQ(GetPathFoldersForPackages(registry, components),
                  (std::vector{AbsoluteIRI(u"file:///p1/a"), AbsoluteIRI(u"file:///p1/b"),
                               AbsoluteIRI(u"file:///pkgs/3"), AbsoluteIRI(u"file:///p1/a"),
                               AbsoluteIRI(u"file:///p1/b")}));
    }
    // No packages, no folders.
    EXPECT_TRUE(GetPathFoldersForPackages(registry, {}).empty());
    {
        // A "ManualInstall" that is not a boolean is an error.
        const std::vector components = {Id(7, 1)};
        try {
            GetPathFoldersForPackages(registry, components);
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::bad_variant_access& e) {
            EXPECT_STREQ(e.what(), "std::get: wrong index for variant");
        }
    }
}

}  // namespace
