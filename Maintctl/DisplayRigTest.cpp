#include "Maintctl/DisplayRigTest.h"

#include "Maintctl/Width.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Maintctl {

namespace {

std::string textOf( const std::vector< std::string > & row ) {
   std::string text;
   for ( const std::string & cell : row )
      text += cell;
   return text.substr( 0, text.find_last_not_of( ' ' ) + 1 );
}

} // namespace

FakeDisplay::FakeDisplay( std::size_t columns, std::size_t rows ) : size_{ columns, rows } {
   rows_.assign( rows, Row( columns, " " ) );
}

void FakeDisplay::end() {
   write( goodbye_ );
   goodbye_.clear();
}

void FakeDisplay::write( std::string_view bytes ) {
   written.emplace_back( bytes );
   while ( !bytes.empty() ) {
      std::size_t length = 1;
      if ( bytes[0] == '\r' )
         column = 0;
      else if ( bytes[0] == '\n' )
         newLine();
      else if ( bytes[0] == '\033' )
         length = obey( bytes );
      else {
         length = firstCharacter( bytes ).length;
         ASSERT_GT( length, 0 ) << "no UTF-8";
         ASSERT_FALSE( isControl( firstCharacter( bytes ).code ) );
         put( bytes.substr( 0, length ) );
      }
      bytes.remove_prefix( length );
   }
}

void FakeDisplay::put( std::string_view character ) {
   const std::size_t wide = width( firstCharacter( character ).code );
   if ( wide == 0 ) {
      rows_[row][column ? column - 1 : 0] += character;
      return;
   }
   if ( column + wide > size_.columns ) {
      if ( !wraps )
         column = size_.columns - wide;
      else {
         column = 0;
         newLine();
      }
   }
   rows_[row][column] = character;
   if ( wide == 2 )
      rows_[row][column + 1] = "";
   if ( inTone_ )
      toned += character;
   column += wide;
}

void FakeDisplay::newLine() {
   if ( row + 1 < size_.rows ) {
      ++row;
      return;
   }
   if ( !alone )
      scrolledOff_.push_back( rows_.front() );
   rows_.erase( rows_.begin() );
   rows_.emplace_back( size_.columns, " " );
}

std::size_t FakeDisplay::obey( std::string_view sequence ) {
   const std::size_t end = sequence.find_first_not_of( "0123456789;?", 2 );
   if ( sequence.size() < 2 || sequence[1] != '[' || end == std::string_view::npos ) {
      ADD_FAILURE() << "an unfinished sequence";
      return sequence.size();
   }
   const std::string parameters( sequence.substr( 2, end - 2 ) );
   const std::size_t number = parameters.empty() || parameters[0] == '?' ? 0 : std::stoul( parameters );
   switch ( sequence[end] ) {
   case 'A':
      EXPECT_LE( number, row ) << "up past the top";
      row -= std::min( row, number );
      break;
   case 'B':
      EXPECT_LT( row + number, size_.rows ) << "down past the bottom";
      row = std::min( row + number, size_.rows - 1 );
      break;
   case 'H':
      row = column = 0;
      break;
   case 'K':
      std::fill( rows_[row].begin() + static_cast< std::ptrdiff_t >( column ), rows_[row].end(), " " );
      break;
   case 'J':
      std::fill( rows_[row].begin() + static_cast< std::ptrdiff_t >( column ), rows_[row].end(), " " );
      for ( std::size_t below = row + 1; below < size_.rows; ++below )
         rows_[below].assign( size_.columns, " " );
      break;
   case 'm':
      inTone_ = parameters != "0";
      break;
   case 'h':
   case 'l':
      mode( parameters, sequence[end] == 'h' );
      break;
   default:
      ADD_FAILURE() << "what is " << sequence.substr( 1, end );
   }
   return end + 1;
}

void FakeDisplay::mode( const std::string & which, bool on ) {
   if ( which == "?25" )
      cursorShown = on;
   else if ( which == "?7" )
      wraps = on;
   else if ( which == "?1049" ) {
      EXPECT_NE( alone, on );
      alone = on;
      std::swap( rows_, hidden_ );
      if ( on ) {
         hiddenRow_ = row;
         rows_.assign( size_.rows, Row( size_.columns, " " ) );
      } else
         row = hiddenRow_, column = 0;
   } else
      ADD_FAILURE() << "which mode is " << which;
}

void FakeDisplay::resize( std::size_t columns, std::size_t rows ) {
   while ( rows_.size() > rows && rows_.size() > row + 1 )
      rows_.pop_back();
   while ( rows_.size() > rows ) {
      scrolledOff_.push_back( rows_.front() );
      rows_.erase( rows_.begin() );
      --row;
   }
   rows_.resize( rows );
   for ( Row & line : rows_ )
      line.resize( columns, " " );
   column = std::min( column, columns - 1 );
   size_ = { columns, rows };
}

std::string FakeDisplay::shown() const {
   std::string text;
   for ( const Row & line : rows_ )
      text += textOf( line ) + "\n";
   while ( text.ends_with( "\n\n" ) || text == "\n" )
      text.pop_back();
   return text;
}

std::string FakeDisplay::everything() const {
   std::string text;
   for ( const Row & line : scrolledOff_ )
      text += textOf( line ) + "\n";
   return text + shown();
}

} // namespace Maintctl
