#pragma once

#include "Agent/Model/EventLog.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <set>
#include <string>

/// Purpose: puts events into the log, in the form in which they are told.
/// Owner: Events.
namespace Agent {

class EventWriter {
 public:
   /// What all events have.
   struct About {
      EventType type;
      std::string subject; ///< the name of what it is about
      std::string what;    ///< a word
      std::set< std::string > units;
      std::string text;   ///< a sentence for people
      bool wrong = false; ///< somebody should look
   };
   /// Called with each event that is written.
   using Also = std::function< void( const About & ) >;

   /// `wallTime`: seconds since 1970, now, for display.
   EventWriter( Vel::Ptr< EventLog > log, std::function< double() > wallTime, Also also = {} )
      : log_( std::move( log ) ), wallTime_( std::move( wallTime ) ), also_( std::move( also ) ) {}

   /// `numbers`: a JSON object with what else there is, for programs.
   void write( const About & about, const nlohmann::json & numbers );
   void write( const About & about );

   /// While it is silent nothing is written.
   void silentIs( bool silent ) { silent_ = silent; }
   bool silent() const { return silent_; }
   const EventLog & log() const { return *log_; }

 private:
   Vel::Ptr< EventLog > log_;
   std::function< double() > wallTime_;
   Also also_;
   bool silent_ = false;
};

} // namespace Agent
