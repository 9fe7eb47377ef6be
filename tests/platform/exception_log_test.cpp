#include <foundation/core/except/exception.hpp>

#include <cerrno>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>

namespace {

using foundation::core::except::IBaseException;
using foundation::storage::vfs::InvalidIRIException;
namespace vfs = foundation::storage::vfs;

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
