#include <cerrno>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>

#include "support/fault_system.hpp"
#include "support/temp_tree.hpp"

namespace {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::ofstream;
using namespace Velmora::PathManagement;
using vpath_test::FaultSystem;
using vpath_test::TempTree;

// A factory that runs a given function; it also checks that it is handed the root unchanged.
class ScriptedFactory final : public IPathEntryFactory {
  public:
    explicit ScriptedFactory(std::function<void(ofstream&)> script) : m_script(std::move(script)) {}
    void WriteCache(ofstream& stream, const AbsoluteIRI& root) const override {
        EXPECT_EQ(root, AbsoluteIRI(u"file:///srv/tb"));
        m_script(stream);
    }

  private:
    std::function<void(ofstream&)> m_script;
};

const AbsoluteIRI kRoot(u"file:///srv/tb");

TEST(WriteToolboxPathCache, WritesWhatTheFactoryWritesAndLeavesNothingOnFailure) {
    const std::string big(1 << 20, 'x');  // larger than the stream's buffer
    struct Case {
        const char* name;
        std::function<void(ofstream&)> script;
        std::function<void(FaultSystem&)> faults;
        bool throws;
        bool fileLeft;
        std::string content;  // when the file is left
    };
    const Case cases[] = {
        {"content", [](ofstream& s) { s << "cache"; }, nullptr, false, true, "cache"},
        {"big content", [&](ofstream& s) { s << big; }, nullptr, false, true, big},
        {"nothing written", [](ofstream&) {}, nullptr, false, true, ""},
        {"throws after a part",
         [](ofstream& s) {
             s << "half" << std::flush;
             throw std::runtime_error("factory failed");
         },
         nullptr, true, false, ""},
        {"throws before writing", [](ofstream&) { throw 42; }, nullptr, true, false, ""},
        {"disk full on a write", [&](ofstream& s) { s << big; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::WriteAll, "tb.cache", ENOSPC); }, true, false,
         ""},
        {"disk full on the final flush", [](ofstream& s) { s << "small" << std::flush; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::WriteAll, "tb.cache", ENOSPC); }, true, false,
         ""},
        {"cannot be opened", [](ofstream& s) { s << "new"; },
         [](FaultSystem& f) { f.Fail(FaultSystem::Op::OpenFileForWriting, "tb.cache", EACCES); },
         true, true, "old cache"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempTree tree;
        const auto file = tree.File("tb.cache", "old cache");
        FaultSystem faults;
        if (c.faults)
            c.faults(faults);
        const ScriptedFactory factory(c.script);
        if (c.throws) {
            EXPECT_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory),
                         UnableToSaveToolboxCacheException);
        } else {
            EXPECT_NO_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory));
        }
        EXPECT_EQ(std::filesystem::exists(file), c.fileLeft);
        if (c.fileLeft) {
            EXPECT_EQ(vpath_test::ReadAll(file), c.content);
        }
    }
}

TEST(WriteToolboxPathCache, UnusableLocationsAreReportedAndCreateNothing) {
    TempTree tree;
    const ScriptedFactory factory([](ofstream& s) { s << "cache"; });
    // A missing folder, a folder in the way, and a location the storage system does not serve.
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("missing/tb.cache"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    tree.Folder("taken");
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("taken"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    EXPECT_TRUE(std::filesystem::is_directory(tree.Path("taken")));
    EXPECT_THROW(WriteToolboxPathCache(AbsoluteIRI(u"http://example.com/tb.cache"), kRoot, factory),
                 UnableToSaveToolboxCacheException);
    EXPECT_FALSE(std::filesystem::exists(tree.Path("missing")));
}

TEST(WriteToolboxPathCache, ErrorRemovingAFailedFileTakesPrecedence) {
    TempTree tree;
    FaultSystem faults;
    faults.Fail(FaultSystem::Op::RemoveFile, "tb.cache", EPERM);
    const ScriptedFactory factory([](ofstream&) { throw std::runtime_error("factory failed"); });
    EXPECT_THROW(WriteToolboxPathCache(tree.IRI("tb.cache"), kRoot, factory),
                 foundation::storage::vfs::Exception);
}

TEST(UnableToSaveToolboxCacheException, ClonesAndRethrowsItsOwnType) {
    const UnableToSaveToolboxCacheException original;
    const auto copy = original.clone();
    EXPECT_THROW(copy->rethrow(), UnableToSaveToolboxCacheException);
}

}  // namespace
