#include "Maintctl/Sight.h"

#include "Api/Error.h"
#include "Api/Names.h"
#include "Api/Samples.h"
#include "Api/Values.h"
#include "Maintctl/Failure.h"
#include "Maintctl/Text.h"

#include <algorithm>

namespace Maintctl {

namespace {

using What = Show::What;

constexpr std::size_t namesInARequest = 50;
constexpr double mostSeconds = 7 * 86400; ///< as long as the agent keeps samples
constexpr std::size_t rowsPerUnit = 5;    ///< where there are several
constexpr std::size_t rowsOfOneUnit = 8;  ///< below what was there before

RatePoint ratesOf( const Api::Interface & intf ) { return { intf.inBps, intf.outBps }; }

/// What the slowest is first by: how pressing it is, then who will take longest; those of whom nobody can say it first,
/// by how far they are above their threshold.
bool isSlower( const IntfPicture & a, const IntfPicture & b ) {
   if ( a.urgency != b.urgency )
      return a.urgency < b.urgency;
   if ( a.etaSeconds.has_value() != b.etaSeconds.has_value() )
      return !a.etaSeconds;
   if ( a.etaSeconds && *a.etaSeconds != *b.etaSeconds )
      return *a.etaSeconds > *b.etaSeconds;
   const auto excess = []( const IntfPicture & intf ) {
      return intf.rates.busiest().value_or( 0 ) / std::max( 1.0, intf.thresholdBps.value_or( 1 ) );
   };
   return excess( a ) > excess( b );
}

bool isBusy( const Api::Unit & unit ) { return unit.state != Api::UnitState::normal; }

std::string whoText( const Api::Unit & unit ) {
   std::string result = unit.by.value_or( "" );
   if ( unit.reason )
      result += ( result.empty() ? "" : ": " ) + *unit.reason;
   return result;
}

std::string stageText( const Api::Unit & unit ) {
   if ( const Api::Stage * const stage = Api::runningCommand( unit.stages ) )
      return stage->name + ( stage->limitSeconds ? ", at most " + spanText( *stage->limitSeconds ) : "" );
   return unit.stage.value_or( "" );
}

/// Nobody watches an interface that has stopped: a unit that is entering waits for it in vain.
Urgency urgencyOfStopped( const Api::Unit * unit ) {
   return unit && unit->state == Api::UnitState::entering ? Urgency::stuck : Urgency::done;
}

Urgency urgencyOf( const Api::Reason & reason, const Api::Unit * unit ) {
   static const std::map< std::string, Urgency > known = {
      { "above-threshold", Urgency::busy },
      { "timing", Urgency::quiet },
      { "stalled", Urgency::stuck },
      { "oscillating", Urgency::stuck },
      { "starved", Urgency::stuck },
      { "drained", Urgency::done },
      { "shut", Urgency::done },
      { "spike", Urgency::back } };
   if ( reason.code == "stopped" )
      return urgencyOfStopped( unit );
   const auto found = known.find( reason.code );
   // A newer agent may have more words; whoever reads them shall see them.
   return found == known.end() ? Urgency::busy : found->second;
}

} // namespace

Urgency urgencyOf( const Api::Interface & intf, std::optional< double > threshold, const Api::Unit * unit ) {
   if ( intf.reason )
      return urgencyOf( *intf.reason, unit );
   if ( !intf.state || *intf.state == "idle" )
      return Urgency::none;
   if ( intf.spike )
      return Urgency::back;
   if ( *intf.state == "stopped" )
      return urgencyOfStopped( unit );
   if ( *intf.state != "enter-maint" )
      return Urgency::done;
   const auto rate = ratesOf( intf ).busiest();
   return rate && threshold && *rate < *threshold ? Urgency::quiet : Urgency::busy;
}

std::string sentenceOf( const Api::Unit & unit ) {
   if ( !unit.sentence.empty() || unit.state == Api::UnitState::normal )
      return unit.sentence;
   return drainedText( unit.drained, unit.total ) + ( unit.settlingSince ? "; settling" : "" );
}

std::string reasonOf( const Api::Interface & intf, Urgency urgency ) {
   if ( intf.reason )
      return intf.reason->text.empty() ? intf.reason->code : intf.reason->text;
   switch ( urgency ) {
   case Urgency::back:
      return "traffic is back";
   case Urgency::stuck:
      return "stopped";
   case Urgency::busy:
      return "above the threshold";
   case Urgency::quiet:
      return "below the threshold";
   case Urgency::done:
      return intf.shut ? "drained, shut" : intf.state == "stopped" ? "stopped" : "drained";
   case Urgency::none:
      return "not monitored";
   }
   return "";
}

Sight::Sight( Subject subject, Remote & remote, double step )
   : subject_( std::move( subject ) ), remote_( remote ), step_( std::max( step, Curve::leastStep ) ) {}

void Sight::look() {
   switch ( subject_.what ) {
   case What::units: {
      auto units = Api::readUnits( remote_.get( Api::Path::units ) );
      std::vector< Api::Interface > interfaces;
      // A switch may have thousands of interfaces, and of a unit that is normal none is shown.
      if ( std::any_of( units.begin(), units.end(), isBusy ) )
         interfaces = Api::readInterfaces( remote_.get( Api::Path::interfaces ) );
      return see( std::move( units ), std::move( interfaces ) );
   }
   case What::unit:
      return look( Api::readUnit( remote_.get( Api::Path::unit( subject_.name ) ) ) );
   case What::interface:
      return see( {}, { Api::readInterface( remote_.get( Api::Path::interface( subject_.name ) ) ) } );
   default:
      const std::string path =
         subject_.name.empty() ? Api::Path::interfaces : Api::Path::interfacesOf( subject_.name );
      return see( {}, Api::readInterfaces( remote_.get( path ) ) );
   }
}

void Sight::look( const Api::Unit & unit ) {
   see( { unit }, Api::readInterfaces( remote_.get( Api::Path::interfacesOf( unit.name ) ) ) );
}

void Sight::see( std::vector< Api::Unit > units, std::vector< Api::Interface > interfaces ) {
   learnProfiles( interfaces );
   const auto clock = remote_.clock();
   // A unit shows only interfaces that are monitored.
   std::vector< std::string > unfilled;
   for ( const Api::Interface & intf : interfaces )
      if ( ( intf.state || subject_.what != What::units ) && !filled_.contains( intf.name ) )
         unfilled.push_back( intf.name );
   fill( unfilled );
   units_ = std::move( units );
   interfaces_ = std::move( interfaces );
   clock_ = clock;
   if ( clock_ )
      for ( const Api::Interface & intf : interfaces_ )
         curves_.try_emplace( intf.name, step_ ).first->second.see( *clock_, ratesOf( intf ) );
}

void Sight::fill( const std::vector< std::string > & names ) {
   const auto seconds =
      static_cast< unsigned >( std::min( step_ * double( Curve::mostPoints ), mostSeconds ) );
   for ( std::size_t begin = 0; begin < names.size(); begin += namesInARequest ) {
      const std::size_t end = std::min( names.size(), begin + namesInARequest );
      const std::vector< std::string > some(
         names.begin() + std::ptrdiff_t( begin ), names.begin() + std::ptrdiff_t( end ) );
      filled_.insert( some.begin(), some.end() );
      try {
         const Api::Samples samples =
            Api::readSamples( remote_.get( Api::Path::samplesOf( some, seconds ) ) );
         for ( const auto & [name, rates] : samples.interfaces ) {
            Curve curve( step_ );
            for ( std::size_t i = 0; i < std::min( rates.inBps.size(), rates.outBps.size() ); ++i )
               curve.see(
                  samples.start + double( i ) * samples.stepSeconds, { rates.inBps[i], rates.outBps[i] } );
            if ( !curve.empty() )
               curves_.insert_or_assign( name, std::move( curve ) );
         }
      } catch ( const Failure & failure ) {
         // Curves can do without; who does not answer at all is found out by whoever asks for more.
         if ( failure.status == ExitStatus::interrupted )
            throw;
      } catch ( const Api::Error & ) {
      }
   }
}

void Sight::learnProfiles( const std::vector< Api::Interface > & interfaces ) {
   const bool unknown =
      std::any_of( interfaces.begin(), interfaces.end(), [this]( const Api::Interface & intf ) {
         return intf.profile && !thresholds_.contains( *intf.profile );
      } );
   if ( !unknown )
      return;
   for ( const Api::Profile & profile : Api::readProfiles( remote_.get( Api::Path::profiles ) ) )
      thresholds_[profile.name] = profile.thresholdBps;
   for ( const Api::Interface & intf : interfaces )
      if ( intf.profile )
         thresholds_.try_emplace( *intf.profile ); // is not asked for again
}

std::optional< double > Sight::thresholdOf( const Api::Interface & intf ) const {
   if ( intf.reason && intf.reason->thresholdBps )
      return intf.reason->thresholdBps;
   const auto found = intf.profile ? thresholds_.find( *intf.profile ) : thresholds_.end();
   return found == thresholds_.end() ? std::nullopt : found->second;
}

IntfPicture Sight::pictureOf( const Api::Interface & intf, const Api::Unit * unit ) const {
   IntfPicture picture;
   picture.name = intf.name;
   picture.rates = ratesOf( intf );
   picture.thresholdBps = thresholdOf( intf );
   picture.urgency = urgencyOf( intf, picture.thresholdBps, unit );
   picture.text = reasonOf( intf, picture.urgency );
   if ( intf.reason && picture.urgency < Urgency::done )
      picture.etaSeconds = intf.reason->etaSeconds;
   if ( const auto found = curves_.find( intf.name ); found != curves_.end() )
      picture.curve = found->second.last( Curve::mostPoints );
   return picture;
}

std::vector< IntfPicture > Sight::picturesOf( const Api::Unit * unit ) const {
   const bool pressing = subject_.pressing || subject_.what == What::units;
   const auto isMember = [&]( const Api::Interface & intf ) {
      return !unit || subject_.what == What::unit ||
             std::find( intf.units.begin(), intf.units.end(), unit->name ) != intf.units.end();
   };
   std::vector< IntfPicture > result;
   for ( const Api::Interface & intf : interfaces_ )
      if ( isMember( intf ) && ( !pressing || urgencyOf( intf, thresholdOf( intf ), unit ) < Urgency::done ) )
         result.push_back( pictureOf( intf, unit ) );
   std::stable_sort( result.begin(), result.end(), isSlower );
   return result;
}

UnitPicture Sight::pictureOf( const Api::Unit & unit ) const {
   UnitPicture picture;
   picture.name = unit.name;
   picture.state = unit.state;
   picture.stage = stageText( unit );
   picture.total = unit.total;
   picture.drained = unit.drained;
   picture.sentence = sentenceOf( unit );
   picture.who = whoText( unit );
   if ( unit.since && clock_ )
      picture.forSeconds = *clock_ - *unit.since;
   picture.moving = unit.state == Api::UnitState::entering || unit.state == Api::UnitState::exiting;
   picture.interfaces = picturesOf( &unit );
   if ( !picture.interfaces.empty() )
      picture.urgency = picture.interfaces.front().urgency;
   return picture;
}

Picture Sight::picture() const {
   Picture picture;
   picture.clock = clock_;
   picture.stepSeconds = step_;
   switch ( subject_.what ) {
   case What::units:
      picture.title = countText( units_.size(), "unit" );
      picture.mostRows = rowsPerUnit;
      for ( const Api::Unit & unit : units_ )
         picture.units.push_back( pictureOf( unit ) );
      break;
   case What::unit:
      if ( subject_.pressing )
         picture.mostRows = rowsOfOneUnit;
      else
         picture.title = "Unit " + subject_.name;
      for ( const Api::Unit & unit : units_ )
         picture.units.push_back( pictureOf( unit ) );
      break;
   default:
      picture.title =
         subject_.what == What::interface ? "Interface " + subject_.name
                                          : countText( interfaces_.size(), "interface" ) +
                                               ( subject_.name.empty() ? "" : " of " + subject_.name );
      picture.interfaces = picturesOf( nullptr );
   }
   if ( subject_.what == What::interface && !interfaces_.empty() ) {
      const Api::Interface & intf = interfaces_.front();
      const IntfPicture & shown = picture.interfaces.front();
      picture.facts = {
         { "State", intf.state.value_or( "not monitored" ) },
         { "Why", shown.text },
         { "Threshold", rateText( shown.thresholdBps ) + ", profile " + orNothing( intf.profile ) },
         { "Drained in", shown.etaSeconds ? spanText( *shown.etaSeconds ) : nothing },
         { "Link",
           intf.linkState + ( intf.shut ? ", shut by us" : "" ) + ( intf.drift ? ", " + *intf.drift : "" ) },
         { "Units", listText( intf.units ) } };
   }
   return picture;
}

} // namespace Maintctl
