#include "Agent/Control/AnswersJson.h"
#include "Agent/Control/Shapes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>

namespace Agent {

using nlohmann::json;

namespace {

/// Of the two directions; not a number unless both are known.
double busier( const Interface::IntfRates & rates ) {
   return std::isfinite( rates.inBitsRate ) ? std::max( rates.outBitsRate, rates.inBitsRate )
                                            : rates.inBitsRate;
}

using Rates = std::optional< Interface::IntfRates >;

/// What fields of one interface are made of.
struct Seen {
   const Answers::Json & shown;
   const Wire::IntfId & intf;
   const InterfaceFields & fields;
   const Maintenance::MonIntfStatus * record;
   Rates rates;

   const ControlModel & model() const { return shown.model; }
   const ControlCommands & commands() const { return shown.commands; }
   /// Null without a record.
   template < class Of >
   json ofRecord( Of of ) const {
      return record ? json( of( *record ) ) : json( nullptr );
   }
};

template < class From >
struct Field {
   std::string_view name;
   json ( *value )( const From & );
};

/// In the order of their names, as objects have them.
constexpr Field< Seen > interfaceFields[] = {
   { "consecutive-drained-samples",
     []( const Seen & s ) {
        return s.ofRecord(
           []( auto & r ) { return Answers::Json::counter( r.numConsecutiveDrainedSamples() ); } );
     } },
   { "drift", []( const Seen & s ) { return Answers::Json::textOrNull( s.commands().drift( s.intf ) ); } },
   { "in-bps",
     []( const Seen & s ) { return s.rates ? Answers::Json::number( s.rates->inBitsRate ) : json(); } },
   { "kind", []( const Seen & s ) { return json( kindText( s.intf.kind() ) ); } },
   { "last-sample-time",
     []( const Seen & s ) {
        return s.ofRecord( [&]( auto & r ) { return s.shown.time( r.lastSampleTime() ); } );
     } },
   { "link-state", []( const Seen & s ) { return json( s.commands().linkState( s.intf ) ); } },
   { "name", []( const Seen & s ) { return json( s.intf.name() ); } },
   { "out-bps",
     []( const Seen & s ) { return s.rates ? Answers::Json::number( s.rates->outBitsRate ) : json(); } },
   { "profile",
     []( const Seen & s ) { return Answers::Json::textOrNull( profileOf( s.model(), s.intf ) ); } },
   { "reason", []( const Seen & s ) { return s.shown.reason( s.intf, s.rates, s.fields ); } },
   { "samples",
     []( const Seen & s ) {
        return s.ofRecord( []( auto & r ) { return Answers::Json::counter( r.totalSamples() ); } );
     } },
   { "shut", []( const Seen & s ) { return json( s.model().cause->intfStatus( s.intf ) != nullptr ); } },
   { "shut-problem",
     []( const Seen & s ) { return Answers::Json::textOrNull( s.commands().shutProblem( s.intf ) ); } },
   { "spike", []( const Seen & s ) { return json( s.record && s.record->spikeUnderMaint() ); } },
   { "start-time",
     []( const Seen & s ) {
        return s.ofRecord( [&]( auto & r ) { return s.shown.time( r.startTime() ); } );
     } },
   { "state",
     []( const Seen & s ) { return s.ofRecord( []( auto & r ) { return monStateText( r.state() ); } ); } },
   { "state-time",
     []( const Seen & s ) {
        return s.ofRecord( [&]( auto & r ) { return s.shown.time( r.stateTime() ); } );
     } },
   { "units", []( const Seen & s ) { return json( unitsOfInterface( s.model(), s.intf ) ); } } };

/// What fields of its reason are made of.
struct SeenReason {
   const Answers::Json & shown;
   const ReasonFacts & facts;
   const Rates & rates;
};

constexpr Field< SeenReason > reasonFields[] = {
   { "code", []( const SeenReason & s ) { return json( stringValue( s.facts.reason ) ); } },
   { "eta-seconds", []( const SeenReason & s ) { return s.shown.ahead( s.facts.eta ); } },
   { "load-interval-seconds",
     []( const SeenReason & s ) { return Answers::Json::number( s.facts.loadInterval ); } },
   { "quiet-seconds", []( const SeenReason & s ) { return json( s.facts.quiet ); } },
   { "rate-bps",
     []( const SeenReason & s ) { return s.rates ? Answers::Json::number( busier( *s.rates ) ) : json(); } },
   { "shutdown-at", []( const SeenReason & s ) { return s.shown.time( s.facts.shutdownAt.value_or( 0 ) ); } },
   { "since", []( const SeenReason & s ) { return s.shown.time( s.facts.since ); } },
   { "text", []( const SeenReason & s ) { return json( reasonText( s.facts, s.shown.commands ) ); } },
   { "threshold-bps", []( const SeenReason & s ) { return Answers::Json::number( s.facts.threshold ); } },
   { "trend",
     []( const SeenReason & s ) {
        return s.facts.trend == Trend::unknown ? json() : json( stringValue( s.facts.trend ) );
     } },
   { "unwatched-since",
     []( const SeenReason & s ) { return s.shown.time( s.facts.unwatched.value_or( 0 ) ); } } };

/// Its place among the fields; as many as there are: it is none of them.
template < class From, std::size_t count >
constexpr std::size_t indexOf( const Field< From > ( &fields )[count], std::string_view name ) {
   std::size_t index = 0;
   while ( index < count && fields[index].name != name )
      ++index;
   return index;
}

constexpr std::size_t nameField = indexOf( interfaceFields, "name" ),
                      reasonField = indexOf( interfaceFields, "reason" );

/// Filled in the order of its keys.
template < class From, std::size_t count, class Wanted >
json objectOf( const Field< From > ( &fields )[count], const From & from, Wanted wanted ) {
   json result = json::object();
   auto & members = result.get_ref< json::object_t & >();
   for ( std::size_t i = 0; i < count; ++i )
      if ( wanted( i ) )
         members.emplace_hint( members.end(), fields[i].name, fields[i].value( from ) );
   return result;
}

} // namespace

InterfaceFields::InterfaceFields( const std::string & list )
   : ofInterface_( std::uint32_t( 1 ) << nameField ), ofReason_( 0 ) {
   static_assert( std::size( interfaceFields ) <= 32 && std::size( reasonFields ) <= 32 );
   for ( std::size_t begin = 0; begin <= list.size(); ) {
      const std::size_t end = std::min( list.find( ',', begin ), list.size() );
      take( list.substr( begin, end - begin ) );
      begin = end + 1;
   }
}

void InterfaceFields::take( const std::string & name ) {
   constexpr std::string_view ofReason = "reason.";
   const bool part = name.starts_with( ofReason );
   const std::size_t count = part ? std::size( reasonFields ) : std::size( interfaceFields );
   const std::size_t index = part
                                ? indexOf( reasonFields, std::string_view( name ).substr( ofReason.size() ) )
                                : indexOf( interfaceFields, name );
   if ( index == count )
      throw Api::Error{ Api::ErrorCode::badRequest, "interfaces have no field \"" + name + "\"", "fields" };
   ofInterface_ |= std::uint32_t( 1 ) << ( part ? reasonField : index );
   if ( part )
      ofReason_ |= std::uint32_t( 1 ) << index;
   else if ( index == reasonField )
      ofReason_ = ~std::uint32_t( 0 );
}

json Answers::Json::interface( const Wire::IntfId & intf, const InterfaceFields & fields ) const {
   return objectOf(
      interfaceFields,
      Seen{
         *this, intf, fields, model.monIntfStatusDir->monIntfStatus( intf ),
         ratesOf( model, commands, intf ) },
      [&]( std::size_t index ) { return fields.has( index ); } );
}

json Answers::Json::interface( const Wire::IntfId & intf ) const {
   return interface( intf, InterfaceFields() );
}

std::optional< ReasonFacts > Answers::Json::reasonFacts( const Wire::IntfId & intf ) const {
   auto facts = Agent::reasonFacts( model, intf, commands.now() );
   if ( facts )
      facts->shutProblem = commands.shutProblem( intf );
   return facts;
}

json Answers::Json::reason( const Wire::IntfId & intf ) const {
   return reason( intf, ratesOf( model, commands, intf ), InterfaceFields() );
}

json Answers::Json::reason(
   const Wire::IntfId & intf, const std::optional< Interface::IntfRates > & rates,
   const InterfaceFields & fields ) const {
   const auto facts = reasonFacts( intf );
   return facts ? objectOf(
                     reasonFields, SeenReason{ *this, *facts, rates },
                     [&]( std::size_t index ) { return fields.reasonHas( index ); } )
                : json();
}

} // namespace Agent
