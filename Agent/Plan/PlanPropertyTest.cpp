#include "Agent/Plan/FactsRig.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

/// The judgement compared with really taking the links away: random links on top of each other, random routes over them,
/// each route looked at by itself before and after.
namespace Agent {

namespace {

/// A route as it stands in a table.
struct Route {
   std::string destination;
   DataPlane::Choices choices;
};

/// A switch as it is before or after, looked at without any of the code under test.
struct World {
   std::map< std::string, DataPlane::RoutedLink > links;

   bool works( const std::string & name ) const {
      const auto at = links.find( name );
      if ( at == links.end() || !at->second.up )
         return false;
      for ( const auto & need : at->second.needs ) {
         bool one = false;
         for ( const std::string & below : need )
            one = one || works( below );
         if ( !one )
            return false;
      }
      return true;
   }
   /// Those that packets would take now; none: nowhere.
   DataPlane::EqualHops ways( const DataPlane::Choices & choices ) const {
      for ( const auto & hops : choices ) {
         DataPlane::EqualHops working;
         for ( const auto & hop : hops )
            if ( hop.usable && works( hop.link ) )
               working.push_back( hop );
         if ( hops.empty() || !working.empty() )
            return working;
      }
      return {};
   }
   /// The ports and port-channels that carry what leaves through a link; none if it does not work.
   std::set< std::string > carriers( const std::string & name ) const {
      const DataPlane::RoutedLink & link = links.at( name );
      if ( !works( name ) )
         return {};
      if ( link.aggregate || link.needs.empty() )
         return { name };
      std::set< std::string > result;
      for ( const std::string & below : link.needs.back() )
         result.merge( carriers( below ) );
      return result;
   }
   double speed( const std::string & carrier ) const {
      const DataPlane::RoutedLink & link = links.at( carrier );
      if ( !link.aggregate )
         return *link.speedBps;
      double sum = 0;
      for ( const std::string & member : link.needs.front() )
         sum += works( member ) ? *links.at( member ).speedBps : 0;
      return sum;
   }
};

/// A switch of ports, port-channels, bridges, VLAN interfaces and sub-interfaces, and a unit of some of them.
class Story {
 public:
   Story() {
      const int ports = *rc::gen::inRange( 1, 7 );
      for ( int i = 0; i < ports; ++i )
         add( "et" + std::to_string( i ), {}, *rc::gen::inRange( 1, 5 ) * 1e8 );
      std::vector< std::string > free = names();
      std::vector< std::string > bridged;
      for ( int i = 0; i < 2 && !free.empty(); ++i ) {
         const auto members = take( free );
         if ( !members.empty() && *rc::gen::arbitrary< bool >() ) {
            add( "bond" + std::to_string( i ), { members } );
            links.back().aggregate = true;
            links.back().speedBps = std::nullopt;
            bridged.push_back( links.back().name );
         } else if ( !members.empty() ) {
            bridged.insert( bridged.end(), members.begin(), members.end() );
         }
      }
      if ( !bridged.empty() && *rc::gen::arbitrary< bool >() ) {
         add( "br0", { bridged } );
         std::vector< std::string > rest = bridged;
         const auto members = take( rest );
         if ( !members.empty() )
            add( "vlan10", { { "br0" }, members } );
      }
      for ( const std::string & below : names() )
         if ( *rc::gen::inRange( 0, 5 ) == 0 )
            add( below + ".7", { { below } } );
      for ( const std::string & name : names() ) {
         load[name] = { *rc::gen::inRange( 0, 10 ) * 5e7, *rc::gen::inRange( 0, 10 ) * 5e7 };
         if ( *rc::gen::inRange( 0, 3 ) == 0 )
            unit.insert( name );
      }
      for ( int i = *rc::gen::inRange( 0, 8 ); i > 0; --i )
         routes.push_back( { "10." + std::to_string( i ) + ".0.0/16", choices() } );
      session = choices();
   }

   World world( bool without ) const {
      World result;
      for ( const auto & link : links ) {
         result.links[link.name] = link;
         if ( without && unit.count( link.name ) )
            result.links[link.name].up = false;
      }
      return result;
   }

   /// Routes that are the same but for their destination are one class, as a switch gives them.
   PlanFacts facts() const {
      PlanFacts result;
      for ( const std::string & name : unit ) {
         PlanInterface interface;
         interface.name = name;
         interface.load = { load.at( name ), load.at( name ) };
         result.interfaces.push_back( interface );
      }
      for ( const auto & [name, rates] : load )
         if ( !unit.count( name ) )
            result.loads[name] = { rates, rates };
      result.routes.links = links;
      for ( const Route & route : routes ) {
         auto & classes = result.routes.classes;
         auto at = std::find_if( classes.begin(), classes.end(), [&]( const auto & one ) {
            return one.choices == route.choices;
         } );
         if ( at == classes.end() )
            at = classes.insert( at, { route.choices, 0, {} } );
         ++at->destinations;
         at->examples.push_back( route.destination );
      }
      result.session = "192.0.2.1";
      result.way = { "", false, "192.0.2.0/24", session };
      return result;
   }

   std::vector< DataPlane::RoutedLink > links;
   std::map< std::string, PlanRates > load;
   std::set< std::string > unit;
   std::vector< Route > routes;
   DataPlane::Choices session;

 private:
   void add(
      const std::string & name, const std::vector< std::vector< std::string > > & needs,
      std::optional< double > speed = std::nullopt ) {
      links.push_back( { name, *rc::gen::inRange( 0, 6 ) != 0, false, speed, needs } );
   }
   std::vector< std::string > names() const {
      std::vector< std::string > result;
      for ( const auto & link : links )
         result.push_back( link.name );
      return result;
   }
   static std::vector< std::string > take( std::vector< std::string > & from ) {
      std::vector< std::string > result;
      for ( int i = *rc::gen::inRange( 0, 4 ); i > 0 && !from.empty(); --i ) {
         result.push_back( from.back() );
         from.pop_back();
      }
      return result;
   }
   DataPlane::Choices choices() const {
      DataPlane::Choices result;
      for ( int i = *rc::gen::inRange( 1, 4 ); i > 0; --i ) {
         DataPlane::EqualHops hops;
         for ( int j = *rc::gen::inRange( 0, 4 ); j > 0; --j )
            hops.push_back(
               { links[*rc::gen::inRange< std::size_t >( 0, links.size() )].name,
                 *rc::gen::inRange< std::uint32_t >( 1, 4 ), *rc::gen::inRange( 0, 8 ) != 0 } );
         result.push_back( hops );
      }
      return result;
   }
};

const PlanFinding * findingOf( const std::vector< PlanFinding > & findings, const char * code ) {
   return FactsRig::find( findings, code );
}

} // namespace

RC_GTEST_PROP( PlanProperty, aLastPathIsWhatTakingTheLinksAwayCutsOff, () ) {
   const Story story;
   const World before = story.world( false ), after = story.world( true );
   double cut = 0;
   for ( const Route & route : story.routes )
      cut += !before.ways( route.choices ).empty() && after.ways( route.choices ).empty();
   const auto findings = judge( story.facts() );
   const PlanFinding * const finding = findingOf( findings, PlanCode::lastPath );
   RC_CLASSIFY( cut > 0 );
   RC_ASSERT( ( cut > 0 ) == ( finding != nullptr ) );
   if ( !finding )
      return;
   RC_ASSERT( finding->numbers.at( 0 ).second == cut );
   // Giving back what is named is enough to have all of it again.
   World mended = after;
   for ( const std::string & name : finding->interfaces ) {
      RC_ASSERT( story.unit.count( name ) == 1u );
      mended.links[name].up = before.links.at( name ).up;
   }
   for ( const Route & route : story.routes )
      RC_ASSERT( before.ways( route.choices ).empty() || !mended.ways( route.choices ).empty() );
}

RC_GTEST_PROP( PlanProperty, aSessionIsLockedOutWhenTakingTheLinksAwayCutsItOff, () ) {
   const Story story;
   const bool was = !story.world( false ).ways( story.session ).empty();
   const bool is = !story.world( true ).ways( story.session ).empty();
   const auto findings = judge( story.facts() );
   RC_CLASSIFY( was && !is );
   RC_ASSERT( ( was && !is ) == ( findingOf( findings, PlanCode::lockOut ) != nullptr ) );
   RC_ASSERT( !was == ( findingOf( findings, PlanCode::unknownSession ) != nullptr ) );
}

RC_GTEST_PROP( PlanProperty, capacityIsMissingWhenTheRestCannotCarryWhatIsTakenAway, () ) {
   const Story story;
   const World before = story.world( false ), after = story.world( true );
   std::set< std::string > from, to;
   for ( const Route & route : story.routes ) {
      const auto now = before.ways( route.choices ), then = after.ways( route.choices );
      std::set< std::string > lost;
      for ( const auto & hop : now )
         if ( !after.works( hop.link ) )
            lost.merge( before.carriers( hop.link ) );
      if ( lost.empty() || then.empty() )
         continue;
      from.merge( lost );
      for ( const auto & hop : then )
         to.merge( after.carriers( hop.link ) );
   }
   PlanRates moved, room;
   for ( const std::string & name : from ) {
      moved.in += story.load.at( name ).in;
      moved.out += story.load.at( name ).out;
   }
   for ( const std::string & name : to ) {
      room.in += std::max( 0.0, after.speed( name ) - story.load.at( name ).in );
      room.out += std::max( 0.0, after.speed( name ) - story.load.at( name ).out );
   }
   bool missing = moved.in > room.in || moved.out > room.out;
   // A port-channel that goes on without a member has to carry all that it carries.
   for ( const auto & link : story.links ) {
      if (
         !link.aggregate || !after.works( link.name ) ||
         before.speed( link.name ) == after.speed( link.name ) )
         continue;
      const PlanRates & load = story.load.at( link.name );
      missing = missing || std::max( load.in, load.out ) > after.speed( link.name );
   }
   const auto findings = judge( story.facts() );
   RC_CLASSIFY( missing );
   const bool found = std::any_of( findings.begin(), findings.end(), []( const PlanFinding & finding ) {
      return finding.code == PlanCode::capacity && finding.severity == PlanSeverity::blocking;
   } );
   RC_ASSERT( missing == found );
   RC_ASSERT( findingOf( findings, PlanCode::unknownCapacity ) == nullptr );
   // Whose loads are asked for is all that has to be known.
   std::set< std::string > needed;
   for ( const std::string & name : to )
      if ( !story.unit.count( name ) )
         needed.insert( name );
   const auto asked = interfacesInQuestion( story.facts() );
   RC_ASSERT( std::includes( asked.begin(), asked.end(), needed.begin(), needed.end() ) );
}

RC_GTEST_PROP( PlanProperty, nothingIsFoundWhenNothingIsTakenAway, () ) {
   Story story;
   story.unit.clear();
   for ( const PlanFinding & finding : judge( story.facts() ) )
      RC_ASSERT( finding.code == PlanCode::noSteering || finding.code == PlanCode::unknownSession );
}

} // namespace Agent
