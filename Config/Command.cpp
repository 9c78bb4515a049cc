#include "Config/Command.h"

#include "Config/InQuotes.h"

#include <algorithm>

namespace Config {

namespace {

constexpr std::string_view blanks = " \t\n";
/// What a shell would take for more than text, outside and inside of double quotes.
constexpr std::string_view special = "|&;<>()$`*?";
constexpr std::string_view specialInQuotes = "$`";
/// What a backslash takes its meaning from inside of double quotes.
constexpr std::string_view escapedInQuotes = "\"\\$`";

bool isOneOf( char c, std::string_view characters ) { return characters.find( c ) != characters.npos; }

bool isControl( char c ) { return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f; }

bool isPlain( char c ) {
   return ( 'A' <= c && c <= 'Z' ) || ( 'a' <= c && c <= 'z' ) || ( '0' <= c && c <= '9' ) ||
          isOneOf( c, "/._-+,:=@%" ) || static_cast< unsigned char >( c ) >= 0x80;
}

/// Takes a line apart. Ends with the first thing that is wrong with it.
class Splitter {
 public:
   explicit Splitter( std::string_view line ) : line_( line ) {}

   std::vector< std::string > words;
   std::string error;

   void split() {
      while ( at_ < line_.size() && error.empty() ) {
         const char c = line_[at_++];
         if ( isOneOf( c, blanks ) )
            endWord();
         else if ( c == '\'' )
            single();
         else if ( c == '"' )
            twofold();
         else if ( c == '\\' )
            escaped();
         else if ( isOneOf( c, special ) )
            refuseSpecial( c );
         else
            take( c );
      }
      endWord();
   }

 private:
   void take( char c ) {
      if ( isControl( c ) )
         error = "has a control character";
      word_ += c;
      inWord_ = true;
   }
   void endWord() {
      if ( inWord_ )
         words.push_back( word_ );
      word_.clear();
      inWord_ = false;
   }
   void refuseSpecial( char c ) {
      error = std::string( "has " ) + c +
              ", and no shell runs a command; put it in '...' if it is text, or write /bin/sh -c '...'";
   }
   void escaped() {
      if ( at_ == line_.size() )
         error = "ends with a backslash; write \\\\ if it is text";
      else
         take( line_[at_++] );
   }
   void single() {
      inWord_ = true;
      const std::size_t end = line_.find( '\'', at_ );
      if ( end == line_.npos ) {
         error = "has a ' that is not closed";
         return;
      }
      while ( at_ < end )
         take( line_[at_++] );
      ++at_;
   }
   void twofold() {
      inWord_ = true;
      for ( ; at_ < line_.size() && error.empty(); ++at_ ) {
         const char c = line_[at_];
         if ( c == '"' ) {
            ++at_;
            return;
         }
         if ( isOneOf( c, specialInQuotes ) )
            return refuseSpecial( c );
         if ( c == '\\' && at_ + 1 < line_.size() && isOneOf( line_[at_ + 1], escapedInQuotes ) )
            take( line_[++at_] );
         else
            take( c );
      }
      if ( error.empty() )
         error = "has a \" that is not closed";
   }

   std::string_view line_;
   std::size_t at_ = 0;
   std::string word_;
   bool inWord_ = false; ///< an empty word in quotes is a word
};

std::string quoted( const std::string & word ) {
   if ( !word.empty() && std::all_of( word.begin(), word.end(), isPlain ) )
      return word;
   std::string result = "'";
   for ( const char c : word )
      result += c == '\'' ? std::string( "'\\''" ) : std::string( 1, c );
   return result + "'";
}

} // namespace

Parsed< Command > Command::parse( std::string_view line ) {
   using Result = Parsed< Command >;
   Splitter splitter( line );
   splitter.split();
   const std::string command = "command " + inQuotes( line ) + " ";
   if ( !splitter.error.empty() )
      return Result::refused( command + splitter.error );
   return ofWords( command, std::move( splitter.words ) );
}

Parsed< Command > Command::of( std::vector< std::string > words ) {
   for ( const std::string & word : words )
      if ( std::any_of( word.begin(), word.end(), isControl ) )
         return Parsed< Command >::refused( "command word " + inQuotes( word ) + " has a control character" );
   return ofWords( "command ", std::move( words ) );
}

/// \param what  for messages: the command, with a blank behind it
Parsed< Command > Command::ofWords( const std::string & what, std::vector< std::string > words ) {
   using Result = Parsed< Command >;
   if ( words.empty() )
      return Result::refused( what + "is empty; leave the key out if there is nothing to do" );
   if ( words.front().empty() || words.front()[0] != '/' )
      return Result::refused(
         what + "begins with " + inQuotes( words.front() ) +
         ", which is no absolute path; write where the program is, for example /usr/local/sbin/steer" );
   Command result;
   result.words_ = std::move( words );
   return Result::of( std::move( result ) );
}

std::string Command::text() const {
   std::string result;
   for ( const std::string & word : words_ )
      result += ( result.empty() ? "" : " " ) + quoted( word );
   return result;
}

} // namespace Config
