#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Purpose: what a command writes, as lines of bounded length.
namespace Agent {

class Lines {
 public:
   /// \param objects  whether lines that begin with "{" may be long; else they are text as any other
   explicit Lines( bool objects ) : objects_( objects ) {}

   /// Bytes of a line that are taken, without the line feed: of one that begins with "{", and of any other.
   static constexpr std::size_t mostOfAnObject = 256 * 1024;
   static constexpr std::size_t mostOfText = 1000;
   /// Takes a line without its line feed, and whether more of it was left out.
   using Taker = std::function< void( const std::string & line, bool cut ) >;

   /// Takes bytes as they come, and gives each line that is whole.
   void add( std::string_view bytes, const Taker & taker );
   /// No more comes: gives what stands behind the last line feed, if anything does.
   void end( const Taker & taker );

 private:
   bool objects_;
   std::string line_;
   bool any_ = false; ///< something of the line has come
   bool cut_ = false;
};

/// Text of bytes from outside for a log: one line, what is no character escaped as \xNN.
std::string printableLine( std::string_view bytes );

/// What is shown of such a text as the reason of a failure. Never ends in the middle of a character.
std::string shortened( const std::string & text );

} // namespace Agent
