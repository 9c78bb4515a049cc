#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Purpose: takes server-sent events out of the bytes of a stream, however they are cut.
namespace Maintctl {

struct SentEvent {
   std::string id;   ///< empty: none
   std::string type; ///< "message" if it does not say
   std::string data; ///< lines joined by a line feed
};

class EventParser {
 public:
   /// Calls `event` for each event that is complete. Comments, and events without data, are left out.
   void take( std::string_view bytes, const std::function< void( const SentEvent & ) > & event );

 private:
   void takeLine( std::string_view line, const std::function< void( const SentEvent & ) > & event );

   std::string rest_; ///< the beginning of a line
   SentEvent event_;
   bool hasData_ = false;
};

} // namespace Maintctl
