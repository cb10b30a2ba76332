#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "talvex/basics/Exceptions.h"

namespace {

TEST(Exceptions, ComposeTheDiagnosticTextOnceAndCatchAsStdException) {
    Basics::InvalidArgumentException e("src/GfpsExplorer.cpp", "SetBufferSize", 262,
                                       "\nError occur while GfpsExplorer::SetBufferSize():\n");
    EXPECT_STREQ(e.what(),
                 "\nError Occur:\n\t File: src/GfpsExplorer.cpp\n\t Function: SetBufferSize"
                 "\n\t Line: 262\n\t Detail: \nError occur while GfpsExplorer::SetBufferSize():\n");
    EXPECT_STREQ(Basics::IO_Exception("", "", -12, "").what(),
                 "\nError Occur:\n\t File: \n\t Function: \n\t Line: -12\n\t Detail: ");
    static_assert(std::is_base_of_v<std::exception, Basics::ExceptionBase>);
    static_assert(std::is_base_of_v<Basics::ExceptionBase, Basics::ContainerEmptyException>);
    try {
        TALVEX_THROW(InvalidArgumentException, "bad value");
    } catch (const std::exception& e) {
        const std::string text = e.what();
        EXPECT_NE(text.find("\t Function: TestBody\n"), std::string::npos);
        EXPECT_NE(text.find("ExceptionsTest.cpp"), std::string::npos);
        EXPECT_EQ(text.substr(text.size() - 9), "bad value");
    }
}

TEST(Exceptions, CopiesOutliveTheirSourceAndSelfAssignmentIsHarmless) {
    auto source = std::make_unique<Basics::TimeoutsException>("a.cpp", "F", 1, "detail");
    const std::string expected = source->what();
    Basics::TimeoutsException copy(*source);
    Basics::TimeoutsException assigned("x", "y", 2, "z");
    assigned = *source;
    source.reset();
    EXPECT_EQ(copy.what(), expected);
    EXPECT_EQ(assigned.what(), expected);

    Basics::ExceptionBase& self = copy;
    copy = self;
    EXPECT_EQ(copy.what(), expected);
}

}  // namespace
