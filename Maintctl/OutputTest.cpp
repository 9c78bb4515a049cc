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
   Output output( data, messages, false );
   output.text( "data\n" );
   output.message( "message" );
   EXPECT_TRUE( output.flush() );
   EXPECT_EQ( data.str(), "data\n" );
   EXPECT_EQ( messages.str(), "message\n" );
}

TEST_F( OutputTest, givesDocumentsAsLinesIfThereAreSeveral ) {
   Output output( data, messages, true );
   output.documentsAreLines();
   output.document( R"({ "a": [1,
      2] })" );
   output.document( "[]" );
   EXPECT_EQ( data.str(), "{\"a\":[1,2]}\n[]\n" );
}

TEST_F( OutputTest, namesWhatAFailureIsAbout ) {
   Output output( data, messages, false );
   output.failure( failure );
   EXPECT_EQ( messages.str(), "maintctl: spine-a: it cannot be\n" );
}

TEST_F( OutputTest, namesItOnceOnly ) {
   Output output( data, messages, false );
   failure.message = "spine-a is exiting";
   output.failure( failure );
   failure.message = "spine-ab is exiting";
   output.failure( failure );
   EXPECT_EQ( messages.str(), "maintctl: spine-a is exiting\nmaintctl: spine-a: spine-ab is exiting\n" );
}

TEST_F( OutputTest, tellsPeopleWhatTheyCanDoAboutIt ) {
   Output output( data, messages, false );
   failure.hint = "is it there?";
   output.failure( failure );
   EXPECT_EQ( messages.str(), "maintctl: spine-a: it cannot be; is it there?\n" );
}

TEST_F( OutputTest, givesAFailureAsOneDocumentIfJsonIsAskedFor ) {
   Output output( data, messages, true );
   output.message( "message" );
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
   Output output( data, messages, false );
   data.setstate( std::ios::badbit );
   output.text( "data\n" );
   EXPECT_FALSE( output.flush() );
}

} // namespace
} // namespace Maintctl
