#include "Maintctl/Sight.h"

#include "Api/Error.h"
#include "Api/Names.h"
#include "Api/Samples.h"
#include "Api/Slowness.h"
#include "Api/Values.h"
#include "Maintctl/Failure.h"
#include "Maintctl/Text.h"
#include "Maintctl/Urgency.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <tuple>
#include <utility>

namespace Maintctl {

namespace {

using What = Show::What;

constexpr std::size_t namesInARequest = 50;
constexpr double mostSeconds = 7 * 86400;     ///< as long as the agent keeps samples
constexpr std::size_t rowsPerUnit = 5;        ///< where there are several
constexpr std::size_t rowsOfOneUnit = 8;      ///< below what was there before
constexpr std::size_t mostCurves = 200;       ///< no terminal has more rows
constexpr std::ptrdiff_t mostUnitsInTurn = 8; ///< of more than these, all interfaces are asked for at once
constexpr double secondsPerSample = Curve::leastStep;
constexpr double thresholdsKept = 30; ///< seconds; they change only when the configuration does

/// What is looked at first: traffic that is back, then what is waited for, the slowest first, then the rest.
bool isBefore( const IntfPicture & a, const IntfPicture & b ) {
   const auto kind = []( const IntfPicture & intf ) {
      const bool waitedFor = intf.urgency > Urgency::back && intf.urgency < Urgency::done;
      return waitedFor ? Urgency::stuck : intf.urgency;
   };
   if ( kind( a ) != kind( b ) )
      return kind( a ) < kind( b );
   const auto slowness = []( const IntfPicture & intf ) {
      return Api::Slowness{ intf.etaSeconds, intf.rates.busiest(), intf.thresholdBps };
   };
   return Api::isSlower( slowness( a ), slowness( b ) );
}

/// Whether both lie between the same two samples.
bool isSameSample( std::optional< double > a, std::optional< double > b ) {
   return a && b && std::floor( *a / secondsPerSample ) == std::floor( *b / secondsPerSample );
}

/// What of a unit changes when something has happened to its interfaces.
auto progressOf( const Api::Unit & unit ) {
   return std::tie( unit.name, unit.state, unit.generation, unit.stage, unit.total, unit.drained );
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

} // namespace

Sight::Sight( Subject subject, Remote & remote, double step )
   : subject_( std::move( subject ) ), remote_( remote ), step_( std::max( step, Curve::leastStep ) ) {}

void Sight::look() {
   switch ( subject_.what ) {
   case What::units: {
      auto units = Api::readUnits( remote_.get( Api::Path::units ) );
      const auto clock = remote_.clock();
      return see( clock, std::move( units ) );
   }
   case What::unit:
      return look( Api::readUnit( remote_.get( Api::Path::unit( subject_.name ) ) ) );
   case What::interface:
      return see( { Api::readInterface( remote_.get( Api::Path::interface( subject_.name ) ) ) } );
   default:
      const std::string path =
         subject_.name.empty() ? Api::Path::interfaces : Api::Path::interfacesOf( subject_.name );
      return see( Api::readInterfaces( remote_.get( path ) ) );
   }
}

void Sight::look( const Api::Unit & unit ) { see( remote_.clock(), { unit } ); }

void Sight::missed() {
   filled_.clear();
   seenAt_ = thresholdsAt_ = std::nullopt;
}

void Sight::see( std::optional< double > clock, std::vector< Api::Unit > units ) {
   const bool same = isSameSample( clock, seenAt_ ) &&
                     std::equal(
                        units.begin(), units.end(), units_.begin(), units_.end(),
                        []( const auto & a, const auto & b ) { return progressOf( a ) == progressOf( b ); } );
   if ( !same )
      see( clock, interfacesOf( units ) );
   units_ = std::move( units );
   clock_ = clock;
}

void Sight::see( std::vector< Api::Interface > interfaces ) {
   see( remote_.clock(), std::move( interfaces ) );
}

void Sight::see( std::optional< double > clock, std::vector< Api::Interface > interfaces ) {
   learnProfiles( clock, interfaces );
   interfaces_ = std::move( interfaces );
   clock_ = seenAt_ = clock;
   if ( clock_ )
      for ( const Api::Interface & intf : interfaces_ )
         curves_.try_emplace( intf.name, step_ ).first->second.see( *clock_, ratesOf( intf ) );
}

std::vector< Api::Interface > Sight::interfacesOf( const std::vector< Api::Unit > & units ) {
   if ( subject_.what == What::unit )
      return Api::readInterfaces( remote_.get( Api::Path::interfacesOf( subject_.name ) ) );
   // A switch may have thousands of interfaces, and of a unit that is normal none is shown.
   const auto busy = std::count_if( units.begin(), units.end(), isBusy );
   if ( busy > mostUnitsInTurn )
      return Api::readInterfaces( remote_.get( Api::Path::interfaces ) );
   std::vector< Api::Interface > result;
   std::set< std::string > known; // units share interfaces
   for ( const Api::Unit & unit : units )
      if ( isBusy( unit ) )
         try {
            for ( auto & intf : Api::readInterfaces( remote_.get( Api::Path::interfacesOf( unit.name ) ) ) )
               if ( known.insert( intf.name ).second )
                  result.push_back( std::move( intf ) );
         } catch ( const Failure & failure ) {
            if ( failure.code != stringValue( Api::ErrorCode::notFound ) )
               throw;
            // It has been taken out of the configuration meanwhile; the next look is without it.
         }
   return result;
}

bool Sight::fill( std::size_t rows ) {
   const Picture shown = picture();
   std::vector< const std::vector< IntfPicture > * > lists{ &shown.interfaces };
   for ( const UnitPicture & unit : shown.units )
      lists.push_back( &unit.interfaces );
   // As rows are given to units: in turn.
   std::vector< std::string > names;
   std::size_t taken = 0;
   bool given = true;
   for ( std::size_t row = 0; given && row < shown.mostRows; ++row ) {
      given = false;
      for ( const auto * list : lists )
         if ( row < list->size() && taken < rows ) {
            ++taken;
            given = true;
            if ( const std::string & name = ( *list )[row].name; filled_.insert( name ).second )
               names.push_back( name );
         }
   }
   bool filled = false;
   for ( std::size_t begin = 0; begin < names.size(); begin += namesInARequest ) {
      const std::size_t end = std::min( names.size(), begin + namesInARequest );
      filled |= fill( std::vector< std::string >(
         names.begin() + std::ptrdiff_t( begin ), names.begin() + std::ptrdiff_t( end ) ) );
   }
   return filled;
}

bool Sight::fill( const std::vector< std::string > & names ) try {
   const auto seconds =
      static_cast< unsigned >( std::min( step_ * double( Curve::mostPoints ), mostSeconds ) );
   const Api::Samples samples = Api::readSamples( remote_.get( Api::Path::samplesOf( names, seconds ) ) );
   bool filled = false;
   for ( const auto & [name, rates] : samples.interfaces ) {
      Curve curve( step_ );
      for ( std::size_t i = 0; i < std::min( rates.inBps.size(), rates.outBps.size() ); ++i )
         // What was carried in a step is known at its end, as with what is seen live.
         curve.see(
            samples.start + double( i + 1 ) * samples.stepSeconds, { rates.inBps[i], rates.outBps[i] } );
      if ( curve.empty() )
         continue;
      // They end before what has been seen since.
      for ( const Api::Interface & intf : interfaces_ )
         if ( seenAt_ && intf.name == name )
            curve.see( *seenAt_, ratesOf( intf ) );
      curves_.insert_or_assign( name, std::move( curve ) );
      filled = true;
   }
   return filled;
} catch ( const Failure & failure ) {
   // Curves can do without. An agent that does not answer at all is told of at once: to ask it for more would take as
   // long again.
   if ( failure.status == ExitStatus::interrupted || failure.status == ExitStatus::notReachable )
      throw;
   return false;
} catch ( const Api::Error & ) {
   return false;
}

void Sight::learnProfiles( std::optional< double > clock, const std::vector< Api::Interface > & interfaces ) {
   const bool old = !clock || !thresholdsAt_ || std::abs( *clock - *thresholdsAt_ ) >= thresholdsKept;
   const bool unknown =
      std::any_of( interfaces.begin(), interfaces.end(), [&]( const Api::Interface & intf ) {
         return intf.profile && ( old || !thresholds_.contains( *intf.profile ) );
      } );
   if ( !unknown )
      return;
   const auto profiles = Api::readProfiles( remote_.get( Api::Path::profiles ) );
   thresholds_.clear();
   thresholdsAt_ = clock;
   for ( const Api::Profile & profile : profiles )
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
   return picture;
}

std::map< std::string, Sight::Members > Sight::membersOfUnits() const {
   std::map< std::string, Members > result;
   for ( const Api::Interface & intf : interfaces_ )
      for ( const std::string & unit : intf.units )
         result[unit].push_back( &intf );
   return result;
}

std::vector< IntfPicture >
Sight::picturesOf( const Members & members, const Api::Unit * unit, std::size_t mostRows ) const {
   const bool pressing = subject_.pressing || subject_.what == What::units;
   std::vector< IntfPicture > result;
   for ( const Api::Interface * intf : members )
      if ( !pressing || urgencyOf( *intf, thresholdOf( *intf ), unit ) < Urgency::done )
         result.push_back( pictureOf( *intf, unit ) );
   std::stable_sort( result.begin(), result.end(), isBefore );
   for ( std::size_t i = 0; i < std::min( { result.size(), mostRows, mostCurves } ); ++i )
      if ( const auto found = curves_.find( result[i].name ); found != curves_.end() )
         result[i].curve = found->second.last( Curve::mostPoints );
   return result;
}

UnitPicture Sight::pictureOf( const Api::Unit & unit, const Members & members, std::size_t mostRows ) const {
   UnitPicture picture;
   picture.name = unit.name;
   picture.state = unit.state;
   picture.stage = stageText( unit );
   picture.total = unit.total;
   picture.drained = unit.drained;
   picture.sentence = sentenceOf( unit );
   // Elsewhere the title says what time it is.
   if ( subject_.pressing )
      picture.sentence += utcOf( picture.sentence );
   picture.who = whoText( unit );
   if ( unit.since && clock_ )
      picture.forSeconds = *clock_ - *unit.since;
   picture.etaSeconds = unit.etaSeconds;
   picture.moving = unit.state == Api::UnitState::entering || unit.state == Api::UnitState::exiting;
   picture.interfaces = picturesOf( members, &unit, mostRows );
   for ( const IntfPicture & intf : picture.interfaces )
      picture.urgency = std::min( picture.urgency, intf.urgency );
   return picture;
}

Picture Sight::picture() const {
   Picture picture;
   picture.clock = clock_;
   picture.stepSeconds = step_;
   Members all;
   for ( const Api::Interface & intf : interfaces_ )
      all.push_back( &intf );
   switch ( subject_.what ) {
   case What::units: {
      picture.title = countText( units_.size(), "unit" );
      picture.mostRows = rowsPerUnit;
      const auto members = membersOfUnits();
      for ( const Api::Unit & unit : units_ ) {
         const auto found = members.find( unit.name );
         picture.units.push_back(
            pictureOf( unit, found == members.end() ? Members() : found->second, rowsPerUnit ) );
      }
      break;
   }
   case What::unit:
      if ( subject_.pressing )
         picture.mostRows = rowsOfOneUnit;
      else
         picture.title = "Unit " + subject_.name;
      for ( const Api::Unit & unit : units_ )
         picture.units.push_back( pictureOf( unit, all, picture.mostRows ) );
      break;
   default:
      picture.title =
         subject_.what == What::interface ? "Interface " + subject_.name
                                          : countText( interfaces_.size(), "interface" ) +
                                               ( subject_.name.empty() ? "" : " of " + subject_.name );
      picture.interfaces = picturesOf( all, nullptr, picture.mostRows );
   }
   if ( subject_.what == What::interface && !interfaces_.empty() ) {
      const Api::Interface & intf = interfaces_.front();
      const IntfPicture & shown = picture.interfaces.front();
      picture.facts = {
         { "State", intf.state.value_or( "not monitored" ) },
         { "Why", shown.text },
         { "Threshold", rateText( shown.thresholdBps ) + ", profile " + orNothing( intf.profile ) },
         { "Drained in", shown.etaSeconds ? spanText( *shown.etaSeconds ) : nothing },
         { "Link", intf.linkState +
                      ( intf.shutProblem ? ", not shut yet"
                        : intf.shut      ? ", shut by us"
                                         : "" ) +
                      ( intf.drift ? ", " + *intf.drift : "" ) },
         { "Units", listText( intf.units ) } };
   }
   return picture;
}

} // namespace Maintctl
