#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "talvex/basics/Exceptions.h"

namespace {

// The text's parts are read back by every refusal test (GfpsTestSupport.h's RefusalOf).
TEST(Exceptions, RaisedWithTheirSiteAndCaughtAsStdException) {
    static_assert(std::is_base_of_v<Basics::ExceptionBase, Basics::ContainerEmptyException>);
    const int line = __LINE__ + 2;
    try {
        TALVEX_THROW(IO_Exception, "bad value");
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), (std::string("\nError Occur:\n\t File: ") + __FILE__ +
                                "\n\t Function: TestBody\n\t Line: " + std::to_string(line) +
                                "\n\t Detail: bad value")
                                   .c_str());
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
