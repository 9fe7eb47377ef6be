#include <foundation/storage/vfs/folder.hpp>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::File;
using foundation::storage::vfs::Folder;
using Velmora::VorlanStorageSystem::GetStorageSystemReference;
using vpath_test::FaultSystem;
namespace vfs = foundation::storage::vfs;

class StorageOnDisk : public vpath_test::TempTreeTest {
  protected:
    Folder FolderAt(const std::string& relative) const { return At(tree.IRI(relative)); }
    File FileAt(const std::string& relative) const {
        return File(tree.IRI(relative), GetStorageSystemReference());
    }
    static Folder At(const AbsoluteIRI& location) {
        return Folder(location, GetStorageSystemReference());
    }
    // The errno of the storage Exception that `resolve` throws, or -1 if it throws none.
    template <class Resolve>
    static int ErrorOf(Resolve resolve) {
        try {
            resolve();
        } catch (const vfs::Exception& e) {
            return e.GetErrorNumber();
        }
        return -1;
    }
};

TEST_F(StorageOnDisk, CanonicalLocationResolvesLinksAndDots) {
    tree.File("real/tb/area.vl");
    tree.Link("link", "real");
    tree.Link("chain", "link");
    tree.Link("deep", "real/tb");
    const ustring root = tree.IRI().toString();
    const std::vector<AbsoluteIRI> spellings = {
        tree.IRI("chain/tb"), AbsoluteIRI(root + u"/real/./tb/../tb/"),
        AbsoluteIRI(root + u"/deep/../tb"),  // ".." leaves the link's target, not the link
    };
    for (const auto& location : spellings) {
        SCOPED_TRACE(Velmora::text::ToNative(location.toString()));
        const auto canonical = At(location).getCanonicalLocation();
        EXPECT_EQ(canonical.getIRI(), tree.IRI("real/tb"));
        EXPECT_EQ(canonical.getResolvedFrom(), location.toString());
    }
    {
        // A file's canonical location resolves the same way.
        EXPECT_EQ(FileAt("chain/tb/area.vl").getCanonicalLocation().getIRI(),
                  tree.IRI("real/tb/area.vl"));
    }
    {
        // Spaces, escape-like text and bytes that are not UTF-8 reach the disk exactly.
        for (const std::string name : {"my dir", "50% %41", "caf\xE9", "a#b?c"}) {
            SCOPED_TRACE(testing::PrintToString(name));
            tree.Folder(name);
            EXPECT_EQ(FolderAt(name).getNativePath(), tree.Path(name).native());
            EXPECT_EQ(FolderAt(name).getCanonicalLocation().getIRI().getName(),
                      Velmora::text::FromNative(name));
        }
    }
}

TEST_F(StorageOnDisk, Exists) {
    tree.Folder("dir");
    tree.File("file.vl");
    tree.Link("to-dir", "dir");
    tree.Link("to-file", "file.vl");
    tree.Link("dangling", "gone");
    struct Case {
        std::string relative;
        bool folder, file;
    };
    const std::vector<Case> cases = {
        {"dir", true, false},     {"to-dir", true, false},    {"file.vl", false, true},
        {"to-file", false, true}, {"dangling", false, false}, {"file.vl/x", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.relative);
        EXPECT_EQ(FolderAt(c.relative).exists(), c.folder);
        EXPECT_EQ(FileAt(c.relative).exists(), c.file);
    }
}

TEST_F(StorageOnDisk, FailuresCarryTheErrorNumber) {
    tree.File("file.vl");
    tree.Link("dangling", "gone");
    tree.Link("loop-a", "loop-b");
    tree.Link("loop-b", "loop-a");
    const std::vector<std::pair<std::string, int>> cases = {
        {"missing", ENOENT},    {"dangling", ENOENT}, {"file.vl", ENOTDIR},
        {"file.vl/x", ENOTDIR}, {"loop-a", ELOOP},
    };
    for (const auto& [relative, error] : cases) {
        SCOPED_TRACE(relative);
        EXPECT_EQ(ErrorOf([&] { FolderAt(relative).getCanonicalLocation(); }), error);
    }
    {
        // The message names what could not be resolved.
        try {
            FolderAt("missing").getCanonicalLocation();
        } catch (const vfs::Exception& e) {
            EXPECT_NE(std::string(e.what()).find(tree.Path("missing").native()), std::string::npos)
                << e.what();
        }
    }
    {
        // A file needs only to exist; a missing one fails as a folder does.
        EXPECT_EQ(ErrorOf([&] { FileAt("file.vl").getCanonicalLocation(); }), -1);
        EXPECT_EQ(ErrorOf([&] { FileAt("missing").getCanonicalLocation(); }), ENOENT);
    }
    {
        // "a%2Fb" is one name holding "/", "a%00" one holding NUL: neither can be on disk, and
        // neither may resolve to "a/b" or "a" instead.
        tree.Folder("a/b");
        for (const ustring name : {u"/a%2Fb", u"/a%00"}) {
            SCOPED_TRACE(Velmora::text::ToNative(name));
            const Folder folder = At(AbsoluteIRI(tree.IRI().toString() + name));
            EXPECT_EQ(ErrorOf([&] { folder.getCanonicalLocation(); }), ENOENT);
            EXPECT_FALSE(folder.exists());
        }
    }
}

TEST_F(StorageOnDisk, InjectedFailuresCarryTheErrorNumber) {
    tree.Folder("locked");
    tree.Folder("plain");
    const std::vector<std::pair<FaultSystem::Op, int>> cases = {
        {FaultSystem::Op::RealPath, EACCES},
        {FaultSystem::Op::RealPath, ELOOP},
        {FaultSystem::Op::RealPath, ENAMETOOLONG},
        {FaultSystem::Op::Stat, EIO},
    };
    for (const auto& [op, error] : cases) {
        SCOPED_TRACE(error);
        FaultSystem faults;
        faults.Fail(op, "/locked", error);
        EXPECT_EQ(ErrorOf([&] { FolderAt("locked").getCanonicalLocation(); }), error);
        EXPECT_EQ(ErrorOf([&] { FolderAt("plain").getCanonicalLocation(); }), -1);
    }
}

}  // namespace
