#include "Maintctl/Timeline.h"

#include "Api/Values.h"
#include "Maintctl/Text.h"

#include <algorithm>

namespace Maintctl {

namespace {

class Timeline {
 public:
   /// Nothing that has no time.
   void add( const std::optional< double > & time, std::string text ) {
      if ( time )
         moments_.push_back( { *time, std::move( text ) } );
   }
   /// Of one time in the order of adding.
   std::string text() {
      std::stable_sort( moments_.begin(), moments_.end(), []( const Moment & a, const Moment & b ) {
         return a.time < b.time;
      } );
      std::string result;
      for ( std::size_t i = 0; i < moments_.size(); ++i ) {
         if ( moments_.size() > mostTimelineLines && i == mostTimelineLines / 2 ) {
            i = moments_.size() - mostTimelineLines / 2;
            result += "  ... " + std::to_string( moments_.size() - mostTimelineLines ) + " more\n";
         }
         result += "  " + dayText( moments_[i].time ) + "  " + printable( moments_[i].text ) + "\n";
      }
      return result;
   }

 private:
   struct Moment {
      double time;
      std::string text;
   };
   std::vector< Moment > moments_;
};

/// The agent's word as words. Who has no rate yet is taken for one above the threshold: nobody knows better.
std::string words( const Api::PastReason & reason ) {
   std::string code = reason.code;
   if ( code == "above-threshold" )
      return reason.rateBps ? "above the threshold" : "waits for a rate";
   if ( code == "shut" )
      return "to be shut";
   std::replace( code.begin(), code.end(), '-', ' ' );
   return code;
}

std::string atRate( const std::optional< double > & bps ) { return bps ? ", " + rateText( bps ) : ""; }

void addStages( Timeline & timeline, const Api::MaintenanceRecord & record ) {
   for ( const Api::PastStage & stage : record.stages ) {
      const std::string name = stage.way + " stage " + stage.name;
      timeline.add( stage.began, name + " begins" );
      timeline.add(
         stage.ended, name + ( stage.failure ? " has failed: " + *stage.failure : " is complete" ) );
   }
}

void addInterface( Timeline & timeline, const Api::PastInterface & intf ) {
   const std::string name = intf.name + ": ";
   timeline.add( intf.profileChanged, name + "takes profile " + orNothing( intf.profile ) );
   // Some reasons say what is told below with more words.
   const auto isToldBelow = [&]( const std::string & code ) {
      return ( code == "shut" && intf.shut ) || ( code == "spike" && !intf.spikes.empty() );
   };
   for ( const Api::PastReason & reason : intf.reasons )
      if ( !isToldBelow( reason.code ) )
         timeline.add( reason.time, name + words( reason ) + atRate( reason.rateBps ) );
   timeline.add(
      intf.shut,
      name + ( intf.shutdownKind == "forced" ? "to be shut before it has drained" : "to be shut" ) );
   for ( const Api::PastSpike & spike : intf.spikes ) {
      timeline.add( spike.began, name + "traffic is back" );
      timeline.add( spike.ended, name + "traffic is gone again, at most " + rateText( spike.peakBps ) );
   }
   for ( const Api::PastDrift & drift : intf.drift )
      timeline.add(
         drift.time, name + ( drift.what ? *drift.what + " by somebody else" : "as we left it again" ) );
   timeline.add( intf.raised, name + "not held down any more" );
}

} // namespace

std::string dayText( double time ) {
   std::string text = Api::timeText( time ).substr( 0, 19 );
   text[10] = ' ';
   return text;
}

std::string clockText( double time ) { return Api::timeText( time ).substr( 11, 8 ); }

std::string timelineText( const Api::MaintenanceRecord & record ) {
   Timeline timeline;
   const Api::Maintenance & m = record.summary;
   timeline.add( m.began, "enter" );
   timeline.add( m.inMaintenance, "under maintenance" );
   timeline.add( m.exitBegan, "exit" );
   addStages( timeline, record );
   for ( const Api::PastInterface & intf : record.interfaces )
      addInterface( timeline, intf );
   timeline.add( m.ended, "normal, " + m.outcome );
   const std::string text = timeline.text();
   return text.empty() ? "" : "\nWhat happened:\n" + text;
}

} // namespace Maintctl
