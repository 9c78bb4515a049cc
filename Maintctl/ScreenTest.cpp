#include "Maintctl/Screen.h"

#include "Maintctl/DisplayRigTest.h"

#include <gtest/gtest.h>

#include <random>

namespace Maintctl {

namespace {

using Place = Screen::Place;

Lines linesOf( std::initializer_list< const char * > texts ) {
   Lines lines;
   for ( const char * text : texts )
      lines.emplace_back( text );
   return lines;
}

class ScreenTest : public testing::Test {
 protected:
   FakeDisplay display{ 20, 6 };
};

TEST_F( ScreenTest, drawsBelowWhatWasThereAndLeavesTheLastFrame ) {
   display.write( "$ command\r\n" );
   {
      Screen screen( display, Place::below );
      screen.draw( linesOf( { "one", "two" } ) );
      EXPECT_FALSE( display.cursorShown );
      EXPECT_FALSE( display.wraps );
      screen.draw( linesOf( { "one", "TWO", "three" } ) );
   }
   display.write( "$ " );
   EXPECT_EQ( display.shown(), "$ command\none\nTWO\nthree\n$\n" );
   EXPECT_TRUE( display.cursorShown );
   EXPECT_TRUE( display.wraps );
}

TEST_F( ScreenTest, scrollsForAFrameThatDoesNotFitBelow ) {
   for ( int i = 0; i < 5; ++i )
      display.write( "before\r\n" );
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "1" } ) );
   screen.draw( linesOf( { "1", "2", "3" } ) );
   screen.draw( linesOf( { "1", "2", "3", "4", "5" } ) );
   screen.close();
   EXPECT_EQ( display.everything(), "before\nbefore\nbefore\nbefore\nbefore\n1\n2\n3\n4\n5\n" );
}

TEST_F( ScreenTest, clearsWhatAShorterFrameLeaves ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "long line", "two", "three" } ) );
   screen.draw( linesOf( { "short" } ) );
   EXPECT_EQ( display.shown(), "short\n" );
   EXPECT_EQ( display.row, 0 );
}

TEST_F( ScreenTest, writesOnlyLinesThatHaveChanged ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two", "three" } ) );
   display.written.clear();
   screen.draw( linesOf( { "one", "TWO", "three" } ) );
   ASSERT_EQ( display.written.size(), 1 ); // in one piece
   EXPECT_EQ( display.written[0], "\033[1BTWO\033[K\r\033[1A" );
   display.written.clear();
   screen.draw( linesOf( { "one", "TWO", "three" } ) );
   EXPECT_TRUE( display.written.empty() );
}

TEST_F( ScreenTest, clearsNothingThatIsToBeShown ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two" } ) );
   display.written.clear();
   screen.draw( linesOf( { "1", "2" } ) );
   EXPECT_EQ( display.written[0].find( "\033[J" ), std::string::npos );
   EXPECT_EQ( display.written[0].find( "\033[2J" ), std::string::npos );
}

TEST_F( ScreenTest, ofItsOwnGivesBackWhatWasThere ) {
   display.write( "$ command\r\n" );
   {
      Screen screen( display, Place::alone );
      screen.draw( linesOf( { "one", "two" } ) );
      EXPECT_TRUE( display.alone );
      EXPECT_EQ( display.shown(), "one\ntwo\n" );
   }
   EXPECT_FALSE( display.alone );
   EXPECT_EQ( display.shown(), "$ command\n" );
   EXPECT_TRUE( display.cursorShown );
   EXPECT_TRUE( display.wraps );
}

TEST_F( ScreenTest, leavesARowBelowTheFrameAndAColumnBesideIt ) {
   EXPECT_EQ( Screen( display, Place::below ).room(), ( Size{ 19, 5 } ) );
   EXPECT_EQ( Screen( display, Place::alone ).room(), ( Size{ 19, 6 } ) );
}

TEST_F( ScreenTest, isDrawnAnewWhenTheTerminalIsResized ) {
   for ( const Place place : { Place::below, Place::alone } ) {
      SCOPED_TRACE( place == Place::below ? "below" : "alone" );
      FakeDisplay terminal{ 20, 6 };
      Screen screen( terminal, place );
      screen.draw( linesOf( { "one two three", "four", "five" } ) );
      EXPECT_FALSE( screen.needsDrawing() );
      terminal.resize( 8, 3 );
      EXPECT_TRUE( screen.needsDrawing() );
      screen.draw( linesOf( { "one", "four" } ) );
      EXPECT_FALSE( screen.needsDrawing() );
      EXPECT_EQ( terminal.shown(), "one\nfour\n" );
      terminal.resize( 30, 10 );
      screen.draw( linesOf( { "one two three", "four" } ) );
      EXPECT_EQ( terminal.shown(), "one two three\nfour\n" );
   }
}

TEST_F( ScreenTest, saysALineAboveTheFrame ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two" } ) );
   screen.above( Line( "a message that is longer than a line" ) );
   screen.draw( linesOf( { "one", "TWO" } ) );
   EXPECT_EQ( display.shown(), "a message that is lo\nnger than a line\none\nTWO\n" );
   screen.close();
   EXPECT_TRUE( display.wraps );
}

TEST_F( ScreenTest, drawsNothingWhileTheTerminalIsNotOurs ) {
   display.ours = false;
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one" } ) );
   EXPECT_TRUE( display.written.empty() );
   EXPECT_FALSE( screen.needsDrawing() );
   display.ours = true;
   EXPECT_TRUE( screen.needsDrawing() );
   screen.draw( linesOf( { "one" } ) );
   EXPECT_EQ( display.shown(), "one\n" );
}

TEST_F( ScreenTest, keepsLinesAboveTheFrameUntilTheTerminalIsOurs ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two" } ) );
   display.ours = false;
   display.written.clear();
   screen.above( Line( "first" ) );
   screen.above( Line( "second" ) );
   EXPECT_TRUE( display.written.empty() );
   EXPECT_FALSE( screen.needsDrawing() );
   display.ours = true;
   EXPECT_TRUE( screen.needsDrawing() );
   screen.draw( linesOf( { "one", "TWO" } ) );
   EXPECT_FALSE( screen.needsDrawing() );
   EXPECT_EQ( display.shown(), "first\nsecond\none\nTWO\n" );
}

TEST_F( ScreenTest, saysKeptLinesAtItsEndIfTheTerminalIsNeverOurs ) {
   display.ours = false;
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one" } ) );
   screen.above( Line( "a message" ) );
   screen.close();
   EXPECT_EQ( display.shown(), "a message\n" );
   screen.close();
   EXPECT_EQ( display.written.size(), 1 );
}

TEST_F( ScreenTest, saysKeptLinesOnceAfterTheTerminalWasLeftAndResized ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two" } ) );
   display.end();
   display.left = true;
   display.ours = false;
   screen.above( Line( "a message" ) );
   display.ours = true;
   display.resize( 30, 6 );
   screen.draw( linesOf( { "one", "two" } ) );
   EXPECT_EQ( display.shown(), "one\ntwo\na message\none\ntwo\n" );
}

TEST_F( ScreenTest, beginsAnewAfterTheTerminalWasLeft ) {
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "one", "two" } ) );
   display.end();
   display.left = true;
   display.write( "[1]+ Stopped\r\n" );
   EXPECT_TRUE( screen.needsDrawing() );
   screen.draw( linesOf( { "one", "two" } ) );
   EXPECT_EQ( display.shown(), "one\ntwo\n[1]+ Stopped\none\ntwo\n" );
   EXPECT_FALSE( display.cursorShown );
}

TEST_F( ScreenTest, isLeftAloneByAWideCharacterThatIsWiderThanWeThink ) {
   // A terminal that gives it two columns where we count one moves the rest of the line, and no other line.
   Screen screen( display, Place::below );
   screen.draw( linesOf( { "0123456789012345678XX", "two" } ) );
   EXPECT_EQ( display.shown(), "0123456789012345678X\ntwo\n" );
}

TEST_F( ScreenTest, usesTonesOnlyWhereTheyAreAllowed ) {
   const Lines lines{ Line( "plain" ).add( "bad", Tone::bad ).add( "good", Tone::good ) };
   Screen( display, Place::below ).draw( lines );
   EXPECT_EQ( display.toned, "" );
   display.able.colours = true;
   Screen( display, Place::below ).draw( lines );
   EXPECT_EQ( display.toned, "badgood" );
}

TEST_F( ScreenTest, showsTheLastFrameWhateverTheOnesBeforeIt ) {
   std::mt19937 dice( 7 );
   const auto upTo = [&]( unsigned most ) { return dice() % ( most + 1 ); };
   for ( int story = 0; story < 200; ++story ) {
      SCOPED_TRACE( story );
      FakeDisplay terminal( 12, 7 );
      for ( unsigned i = upTo( 9 ); i > 0; --i )
         terminal.write( "before\r\n" );
      Screen screen( terminal, story % 2 ? Place::below : Place::alone );
      std::string expected;
      for ( int frame = 0; frame < 20; ++frame ) {
         if ( upTo( 9 ) == 0 )
            terminal.resize( 6 + upTo( 10 ), 4 + upTo( 5 ) );
         const Size room = screen.room();
         Lines lines;
         expected.clear();
         for ( unsigned i = 1 + upTo( static_cast< unsigned >( room.rows ) - 1 ); i > 0; --i ) {
            lines.emplace_back( std::string(
               1 + upTo( static_cast< unsigned >( room.columns ) - 1 ), char( 'a' + upTo( 3 ) ) ) );
            expected += lines.back().text() + "\n";
         }
         screen.draw( lines );
         ASSERT_TRUE( terminal.shown().ends_with( expected ) ) << terminal.shown() << "should end with\n"
                                                               << expected;
      }
   }
}

} // namespace
} // namespace Maintctl
