#include "basicutil/text/StrVector.h"

#include <gtest/gtest.h>

namespace basicutil {
namespace {

TEST(StrVectorTest, PrintingAndSorting) {
    StrVector items{"b", "a b", "", "ab"};
    EXPECT_EQ(printList(items), std::string_view("[b 'a b'  ab]"));
    EXPECT_EQ(printIndexed(items), std::string_view("{[0]='b' [1]='a b' [2]='' [3]='ab'}"));
    sortStrVector(items);
    EXPECT_EQ(items, (StrVector{"", "a b", "ab", "b"}));
}

}  // namespace
}  // namespace basicutil
