// Storage on disk: canonical locations, existence and the error numbers of failures; and the
// exceptions that carry them.

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <foundation/core/except/exception.hpp>
#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/folder.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::core::except::IBaseException;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::File;
using foundation::storage::vfs::Folder;
using foundation::storage::vfs::InvalidIRIException;
using Velmora::VorlanStorageSystem::GetStorageSystemReference;
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
    // The errno of the storage Exception that getCanonicalLocation throws, or -1 if none.
    template <class Item>
    static int ErrorOf(const Item& item) {
        try {
            item.getCanonicalLocation();
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
    // A file's canonical location resolves the same way.
    EXPECT_EQ(FileAt("chain/tb/area.vl").getCanonicalLocation().getIRI(),
              tree.IRI("real/tb/area.vl"));
    // Spaces, escape-like text and bytes that are not UTF-8 reach the disk exactly.
    for (const std::string name : {"my dir", "50% %41", "caf\xE9", "a#b?c"}) {
        SCOPED_TRACE(testing::PrintToString(name));
        tree.Folder(name);
        EXPECT_EQ(FolderAt(name).getNativePath(), tree.Path(name).native());
        EXPECT_EQ(FolderAt(name).getCanonicalLocation().getIRI().getName(),
                  Velmora::text::FromNative(name));
    }
}

TEST_F(StorageOnDisk, ExistsAndFailuresCarryTheErrorNumber) {
    tree.Folder("dir");
    tree.File("file.vl");
    tree.Link("to-dir", "dir");
    tree.Link("to-file", "file.vl");
    tree.Link("dangling", "gone");
    tree.Link("loop-a", "loop-b");
    tree.Link("loop-b", "loop-a");
    struct Case {
        std::string relative;
        bool folder, file;           // exists()
        int folderError, fileError;  // of getCanonicalLocation; a file needs only to exist
    };
    const Case cases[] = {
        {"dir", true, false, -1, -1},
        {"to-dir", true, false, -1, -1},
        {"file.vl", false, true, ENOTDIR, -1},
        {"to-file", false, true, ENOTDIR, -1},
        {"missing", false, false, ENOENT, ENOENT},
        {"dangling", false, false, ENOENT, ENOENT},
        {"file.vl/x", false, false, ENOTDIR, ENOTDIR},
        {"loop-a", false, false, ELOOP, ELOOP},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.relative);
        EXPECT_EQ(FolderAt(c.relative).exists(), c.folder);
        EXPECT_EQ(FileAt(c.relative).exists(), c.file);
        EXPECT_EQ(ErrorOf(FolderAt(c.relative)), c.folderError);
        EXPECT_EQ(ErrorOf(FileAt(c.relative)), c.fileError);
    }
    try {
        FolderAt("missing").getCanonicalLocation();
    } catch (const vfs::Exception& e) {
        // The message names what could not be resolved.
        EXPECT_THAT(e.what(), testing::HasSubstr(tree.Path("missing").native()));
    }
    // "a%2Fb" is one name holding "/", "a%00" one holding NUL: neither can be on disk, and
    // neither may resolve to "a/b" or "a" instead, wherever it stands.
    tree.Folder("a/b");
    for (const ustring name : {u"/a%2Fb", u"/a%00", u"/a%00/b"}) {
        SCOPED_TRACE(Velmora::text::ToNative(name));
        const Folder folder = At(AbsoluteIRI(tree.IRI().toString() + name));
        EXPECT_EQ(ErrorOf(folder), ENOENT);
        EXPECT_FALSE(folder.exists());
    }
}

// Throws `thrown` and returns the clone that a catch through the framework's interface makes.
template <class E>
std::unique_ptr<IBaseException> CloneOfThrown(const E& thrown) {
    try {
        throw thrown;
    } catch (const IBaseException& e) {
        return e.clone();
    }
}

TEST(ExceptionFramework, ClonesAndRethrowsTheMostDerivedType) {
    // A storage failure keeps its errno and message, and is no more than it was.
    const auto storageCopy = CloneOfThrown(vfs::Exception("cannot read /x", EACCES));
    const auto* storage = dynamic_cast<const vfs::Exception*>(storageCopy.get());
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(storage->GetErrorNumber(), EACCES);
    EXPECT_STREQ(storage->what(), "cannot read /x");
    EXPECT_EQ(dynamic_cast<const InvalidIRIException*>(storageCopy.get()), nullptr);
    // An invalid IRI stays one, with its text, and its clone is thrown as one.
    const auto iriCopy = CloneOfThrown(InvalidIRIException(u"tb/x", "is relative"));
    EXPECT_EQ(dynamic_cast<const InvalidIRIException&>(*iriCopy).GetText(), u"tb/x");
    EXPECT_THROW(iriCopy->rethrow(), InvalidIRIException);
    // Rethrowing through a base reference does not slice.
    const vfs::Exception original("denied", EACCES);
    EXPECT_THROW(static_cast<const IBaseException&>(original).rethrow(), vfs::Exception);
}

}  // namespace
