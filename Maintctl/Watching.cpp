#include "Maintctl/Watching.h"

#include "Api/Error.h"
#include "Api/Names.h"
#include "Api/Values.h"
#include "Maintctl/Failure.h"
#include "Maintctl/Json.h"
#include "Maintctl/Text.h"
#include "Maintctl/Urgency.h"

#include <utility>

namespace Maintctl {

namespace {

using What = Show::What;

std::string pathOf( const Show & show ) {
   switch ( show.what ) {
   case What::units:
      return Api::Path::units;
   case What::unit:
      return Api::Path::unit( show.name );
   case What::interface:
      return Api::Path::interface( show.name );
   default:
      return show.name.empty() ? Api::Path::interfaces : Api::Path::interfacesOf( show.name );
   }
}

/// `2026-03-01T12:00:00Z`
std::string secondText( double time ) { return Api::timeText( time ).substr( 0, 19 ) + "Z"; }

/// Those that somebody may have to do something about.
std::string troubles( const UnitPicture & unit ) {
   std::string result;
   for ( const IntfPicture & intf : unit.interfaces )
      if ( intf.urgency <= Urgency::stuck )
         result += "/" + intf.name + std::to_string( static_cast< int >( intf.urgency ) );
   return result;
}

/// What documents are told under, where there are no names.
constexpr char theDocument[] = "";

/// Whoever interrupts us has seen enough, and is told nothing.
Failure silently( Failure failure ) {
   if ( failure.status == ExitStatus::interrupted )
      failure.message.clear(), failure.where.clear();
   return failure;
}

bool isGone( const Failure & failure ) { return failure.code == stringValue( Api::ErrorCode::notFound ); }

} // namespace

Watching::Watching( const Show & show, Remote & remote, Pace & pace, Output & output, Display & display )
   : show_( show ),
     remote_( remote ),
     pace_( pace ),
     output_( output ),
     sight_( { show.what, show.name }, remote, show.interval.seconds() ) {
   if ( output.json() )
      output.documentsAreLines();
   else if ( display.abilities().draws )
      live_.emplace( display, Screen::Place::alone );
   remote.watchedIs( [this] {
      if ( live_ )
         live_->refresh();
   } );
}

void Watching::untilInterrupted() {
   for ( ;; ) {
      if ( look() )
         tell();
      const double period = show_.interval.seconds();
      if ( !( live_ ? live_->rest( pace_, period ) : pace_.sleep( period ) ) )
         throw Failure{ ExitStatus::interrupted, FailureCode::interrupted, "", "", {} };
   }
}

bool Watching::look() {
   std::optional< Failure > failure;
   try {
      if ( output_.json() )
         document_ = remote_.get( pathOf( show_ ) );
      else
         sight_.look();
   } catch ( const Failure & thrown ) {
      if ( !answered_ || isGone( thrown ) || thrown.status == ExitStatus::interrupted )
         throw silently( thrown );
      failure = thrown;
   } catch ( const Api::Error & error ) {
      if ( !answered_ )
         throw;
      failure = Failure{ ExitStatus::failed, stringValue( error.code ), error.message, error.where, {} };
   }
   if ( failure ) {
      tellAway( *failure );
      return false;
   }
   answered_ = true;
   if ( away_ )
      told_.erase( theDocument ); // it is told that it is back
   if ( std::exchange( away_, false ) && !live_ )
      output_.message( "the agent is back" );
   return true;
}

void Watching::tellAway( const Failure & failure ) {
   if ( live_ ) {
      Picture picture = sight_.picture();
      picture.stale = failure.message;
      live_->show( std::move( picture ) );
   } else if ( !away_ )
      output_.failure( failure );
   away_ = true;
   sight_.missed();
}

void Watching::tell() {
   if ( live_ )
      draw();
   else if ( output_.json() )
      tellDocument();
   else
      tellLines();
   if ( !output_.flush() )
      throw Failure{ ExitStatus::failed, FailureCode::failed, "the output could not be written", "", {} };
}

void Watching::draw() try {
   live_->show( sight_.picture() );
   if ( sight_.fill( live_->rows() ) )
      live_->show( sight_.picture() );
} catch ( const Failure & failure ) {
   if ( failure.status == ExitStatus::interrupted )
      throw silently( failure );
   tellAway( failure );
}

void Watching::tellDocument() {
   if ( std::string & last = told_[theDocument]; last != document_ ) {
      last = document_;
      output_.document( document_ );
   }
}

void Watching::tellLines() {
   const Picture picture = sight_.picture();
   for ( std::size_t i = 0; i < picture.units.size(); ++i ) {
      const Api::Unit & unit = sight_.units()[i];
      // Sentences tell rates and times, which always change.
      const std::string state = unit.state + "/" + unit.stage.value_or( "" ) + "/" +
                                std::to_string( unit.drained ) + "/" + std::to_string( unit.total ) +
                                ( unit.settlingSince ? "/settling" : "" ) +
                                ( unit.overdue ? "/overdue" : "" ) + troubles( picture.units[i] );
      const std::string sentence = sentenceOf( unit );
      tellChange( unit.name, state, unit.state + ( sentence.empty() ? "" : ": " + sentence ) );
   }
   if ( !sight_.units().empty() || show_.what == What::units )
      return;
   for ( const Api::Interface & intf : sight_.interfaces() ) {
      const Urgency urgency = urgencyOf( intf, sight_.thresholdOf( intf ) );
      const std::string code =
         intf.reason ? intf.reason->code : std::to_string( static_cast< int >( urgency ) );
      tellChange(
         intf.name,
         intf.state.value_or( "" ) + "/" + code + "/" + intf.linkState + yesNo( intf.shut ) +
            yesNo( intf.spike ),
         "link " + intf.linkState + ( intf.shut ? ", shut" : "" ) + ", " +
            rateText( ratesOf( intf ).busiest() ) + ": " + reasonOf( intf, urgency ) );
   }
}

void Watching::tellChange( const std::string & name, const std::string & state, const std::string & text ) {
   std::string & last = told_[name];
   if ( std::exchange( last, state ) == state )
      return;
   const auto clock = sight_.clock();
   output_.text( printable( ( clock ? secondText( *clock ) + " " : "" ) + name + " " + text ) + "\n" );
}

} // namespace Maintctl
