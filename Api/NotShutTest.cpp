#include "Api/NotShut.h"

#include <gtest/gtest.h>

namespace Api {

TEST( NotShutTest, namesLinksAndWhatTheyHaveInCommon ) {
   EXPECT_EQ( "", notShutText( {} ) );
   EXPECT_EQ( "et1 could not be shut: busy", notShutText( { { "et1", "busy" } } ) );
   EXPECT_EQ(
      "et1 and et2 could not be shut: busy", notShutText( { { "et1", "busy" }, { "et2", "busy" } } ) );
}

TEST( NotShutTest, saysOfEachWhatIsNotTheSame ) {
   EXPECT_EQ(
      "et1 (busy) and et2 (no memory) could not be shut",
      notShutText( { { "et1", "busy" }, { "et2", "no memory" } } ) );
}

TEST( NotShutTest, namesThreeOfMany ) {
   EXPECT_EQ(
      "et1, et2, et3 and 2 more could not be shut: busy", notShutText(
                                                             { { "et1", "busy" },
                                                               { "et2", "busy" },
                                                               { "et3", "busy" },
                                                               { "et4", "busy" },
                                                               { "et5", "busy" } } ) );
}

} // namespace Api
