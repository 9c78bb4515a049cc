#pragma once

#include "Maintctl/Failure.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace Maintctl {

/// Purpose: where words go: data to one stream, messages to the other. With JSON the first gets exactly one document,
/// also for a failure, and the second nothing.
/// Owner: main.
class Output {
 public:
   Output( std::ostream & data, std::ostream & messages, bool json )
      : data_( data ), messages_( messages ), json_( json ) {}

   bool json() const { return json_; }

   /// For people, as it is; lines ended.
   void text( std::string_view text );
   /// For programs: JSON text, which is laid out.
   void document( std::string_view json );
   void message( std::string_view line ); ///< one line, not ended
   void failure( const Failure & failure );

   /// From now on each document is one line: there may be several.
   void documentsAreLines() { lines_ = true; }
   /// False if something could not be written.
   bool flush();

 private:
   std::ostream & data_;
   std::ostream & messages_;
   bool json_;
   bool lines_ = false;
};

} // namespace Maintctl
