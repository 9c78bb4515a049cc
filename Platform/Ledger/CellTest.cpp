#include "Platform/Ledger/Cell.h"

#include <gtest/gtest.h>

namespace {

TEST( Cell, putsThePathBelowTheCell ) { EXPECT_EQ( "cell/2/stage/x", Cell::path( "stage/x", 2 ) ); }

TEST( Cell, zeroIsTheCellOfThisProcess ) {
   EXPECT_EQ( "cell/1/stage/x", Cell::path( "stage/x", 0 ) );
   EXPECT_EQ( Cell::path( "stage/x", Cell::thisCell ), Cell::path( "stage/x", 0 ) );
}

} // namespace
