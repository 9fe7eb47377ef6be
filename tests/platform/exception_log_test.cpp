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
namespace logging = foundation::log;

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
    {
        // A storage failure keeps its errno and message, and is no more than it was.
        const auto copy = CloneOfThrown(vfs::Exception("cannot read /x", EACCES));
        const auto* storage = dynamic_cast<const vfs::Exception*>(copy.get());
        ASSERT_NE(storage, nullptr);
        EXPECT_EQ(storage->GetErrorNumber(), EACCES);
        EXPECT_STREQ(storage->what(), "cannot read /x");
        EXPECT_EQ(dynamic_cast<const InvalidIRIException*>(copy.get()), nullptr);
    }
    {
        // An invalid IRI stays one, with its text, and its clone is thrown as one.
        const auto copy = CloneOfThrown(InvalidIRIException(u"tb/x", "is relative"));
        EXPECT_EQ(dynamic_cast<const InvalidIRIException&>(*copy).GetText(), u"tb/x");
        EXPECT_THROW(copy->rethrow(), InvalidIRIException);
    }
    {
        // Rethrowing through a base reference does not slice.
        const vfs::Exception original("denied", EACCES);
        EXPECT_THROW(static_cast<const IBaseException&>(original).rethrow(), vfs::Exception);
    }
}

TEST(DiagnosticLogger, ChannelsLiveWithTheirLoggersAndTheThresholdDecidesWhatIsWritten) {
    const std::string name = "platform_test::lifetime";
    EXPECT_FALSE(logging::ChannelExists(name));
    const logging::DiagnosticLogger before("platform_test::before");
    {
        // There while the logger lives, gone after, and free to be used again; other channels
        // are not affected.
        { const logging::DiagnosticLogger logger(name); }
        EXPECT_FALSE(logging::ChannelExists(name));
        EXPECT_TRUE(logging::ChannelExists("platform_test::before"));
        const logging::DiagnosticLogger again(name);
        EXPECT_TRUE(logging::ChannelExists(name));
    }
    logging::SetThreshold(logging::Level::Warn);
    const logging::DiagnosticLogger after("platform_test::after");
    for (const auto* logger : {&before, &after}) {
        // Warn and above pass, for channels made before and after the change.
        SCOPED_TRACE(logger->Name());
        EXPECT_TRUE(logger->IsEnabled(logging::Level::Warn));
        EXPECT_FALSE(logger->IsEnabled(logging::Level::Info));
    }
    {
        // What passes reaches standard error under the channel's name; what does not, does not.
        testing::internal::CaptureStderr();
        after.Write(logging::Level::Warn, "cannot read /x");
        after.Write(logging::Level::Debug, "scanned /y");
        const std::string written = testing::internal::GetCapturedStderr();
        EXPECT_NE(written.find("[platform_test::after] warning: cannot read /x"), std::string::npos)
            << written;
        EXPECT_EQ(written.find("scanned /y"), std::string::npos) << written;
    }
    logging::SetThreshold(logging::Level::Off);
    EXPECT_FALSE(after.IsEnabled(logging::Level::Error));
}

}  // namespace
