#pragma once

#include "Maintctl/Failure.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace Maintctl {

/// What stderr is.
struct Terminal {
   bool live = false; ///< progress may be drawn
   std::size_t width = 80;
};

/// Purpose: where words go: data to one stream, messages to the other. With JSON the first gets exactly one document,
/// also for a failure, and the second nothing.
/// Owner: main.
class Output {
 public:
   Output( std::ostream & data, std::ostream & messages, Terminal terminal, bool json )
      : data_( data ), messages_( messages ), terminal_( terminal ), json_( json ) {}

   bool json() const { return json_; }

   /// For people, as it is; lines ended.
   void text( std::string_view text );
   /// For programs: JSON text, which is laid out.
   void document( std::string_view json );
   void message( std::string_view line ); ///< one line, not ended
   void failure( const Failure & failure );

   /// What goes on: drawn over what was drawn before if the terminal can, a line otherwise.
   void progress( std::string_view line );
   bool drawsProgress() const { return terminal_.live && !json_; }
   /// Flushes; false if something could not be written.
   bool finish();

 private:
   void clearProgress();

   std::ostream & data_;
   std::ostream & messages_;
   Terminal terminal_;
   bool json_;
   bool drawn_ = false; ///< there is a line that the next one takes the place of
};

} // namespace Maintctl
