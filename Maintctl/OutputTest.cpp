#include "Maintctl/Output.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Maintctl {

namespace {

class OutputTest : public testing::Test {
 protected:
   Failure failure{ ExitStatus::failed, "conflict", "it cannot be", "spine-a", {} };
   std::ostringstream data, messages;
};

TEST_F( OutputTest, keepsDataAndMessagesApart ) {
   Output output( data, messages, {}, false );
   output.text( "data\n" );
   output.message( "message" );
   output.progress( "progress" );
   EXPECT_TRUE( output.finish() );
   EXPECT_EQ( data.str(), "data\n" );
   EXPECT_EQ( messages.str(), "message\nprogress\n" );
}

TEST_F( OutputTest, clearsDrawnProgressBeforeAnythingElseIsSaid ) {
   Output output( data, messages, { true, 80 }, false );
   output.progress( "one" );
   output.message( "message" );
   output.progress( "two" );
   output.finish();
   EXPECT_EQ( messages.str(), "\r\033[Kone\r\033[Kmessage\n\r\033[Ktwo\r\033[K" );
}

TEST_F( OutputTest, neverDrawsAsWideAsTheTerminal ) {
   Output output( data, messages, { true, 4 }, false );
   output.progress( "12345" );
   EXPECT_EQ( messages.str(), "\r\033[K123" );
}

TEST_F( OutputTest, namesWhatAFailureIsAbout ) {
   Output output( data, messages, {}, false );
   output.failure( failure );
   EXPECT_EQ( messages.str(), "maintctl: spine-a: it cannot be\n" );
}

TEST_F( OutputTest, namesItOnceOnly ) {
   Output output( data, messages, {}, false );
   failure.message = "spine-a is exiting";
   output.failure( failure );
   failure.message = "spine-ab is exiting";
   output.failure( failure );
   EXPECT_EQ( messages.str(), "maintctl: spine-a is exiting\nmaintctl: spine-a: spine-ab is exiting\n" );
}

TEST_F( OutputTest, givesAFailureAsOneDocumentIfJsonIsAskedFor ) {
   Output output( data, messages, {}, true );
   output.message( "message" );
   output.progress( "progress" );
   output.failure( failure );
   EXPECT_EQ(
      data.str(), "{\n"
                  "  \"error\": {\n"
                  "    \"code\": \"conflict\",\n"
                  "    \"message\": \"it cannot be\",\n"
                  "    \"where\": \"spine-a\"\n"
                  "  }\n"
                  "}\n" );
   EXPECT_EQ( messages.str(), "" );
}

TEST_F( OutputTest, saysThatDataCouldNotBeWritten ) {
   Output output( data, messages, {}, false );
   data.setstate( std::ios::badbit );
   output.text( "data\n" );
   EXPECT_FALSE( output.finish() );
}

} // namespace
} // namespace Maintctl
