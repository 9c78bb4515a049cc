#include "Agent/Plan/FactsRig.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

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
   std::map< std::string, double > speeds; ///< of ports
   std::set< std::string > gone;           ///< links that were taken away

   /// Whether a link has no routes any more.
   bool isSetDown( const std::string & name ) const {
      const auto at = links.find( name );
      return gone.count( name ) > 0 || ( at != links.end() && at->second.setDownWithBelow &&
                                         isSetDown( at->second.needs.front().front() ) );
   }
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
   /// Whether none of the ways before a refusal works.
   bool refuses( const DataPlane::Choices & choices ) const {
      return ways( choices ).empty() &&
             std::any_of( choices.begin(), choices.end(), []( const auto & hops ) { return hops.empty(); } );
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
         return speeds.at( carrier );
      double sum = 0;
      for ( const std::string & member : link.needs.front() )
         sum += works( member ) ? speeds.at( member ) : 0;
      return sum;
   }
};

/// A switch of ports, port-channels, bridges, VLAN interfaces and sub-interfaces, and a unit of some of them.
class Story {
 public:
   Story() {
      const int ports = *rc::gen::inRange( 1, 7 );
      for ( int i = 0; i < ports; ++i ) {
         const std::string name = "et" + std::to_string( i );
         add( name, {} );
         speeds[name] = *rc::gen::inRange( 1, 5 ) * 1e8;
      }
      std::vector< std::string > free = names();
      std::vector< std::string > bridged;
      for ( int i = 0; i < 2 && !free.empty(); ++i ) {
         const auto members = take( free );
         if ( !members.empty() && *rc::gen::arbitrary< bool >() ) {
            add( "bond" + std::to_string( i ), { members } );
            links.back().aggregate = true;
            bridged.push_back( links.back().name );
            enslaved.insert( members.begin(), members.end() );
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
         if ( !enslaved.count( below ) && *rc::gen::inRange( 0, 5 ) == 0 )
            add( below + ".7", { { below } } );
      for ( auto & link : links )
         link.setDownWithBelow = link.name.ends_with( ".7" ) && *rc::gen::arbitrary< bool >();
      for ( const std::string & name : names() ) {
         load[name] = { *rc::gen::inRange( 0, 10 ) * 5e7, *rc::gen::inRange( 0, 10 ) * 5e7 };
         if ( *rc::gen::inRange( 0, 3 ) == 0 )
            unit.insert( name );
         if ( *rc::gen::inRange( 0, 8 ) == 0 )
            others.insert( name );
      }
      for ( int i = *rc::gen::inRange( 0, 8 ); i > 0; --i )
         routes.push_back( { "10." + std::to_string( i ) + ".0.0/16", choices() } );
      const int lessSpecific = *rc::gen::inRange( 0, 3 );
      for ( int i = 0; i <= lessSpecific; ++i )
         sessionRoutes.push_back(
            { i == 0   ? "192.0.2.0/24"
              : i == 1 ? "192.0.0.0/16"
                       : "0.0.0.0/0",
              *rc::gen::inRange( 0, 3 ) == 0 ? choices() : DataPlane::Choices{ { { linkOfRoute() } } } } );
   }

   /// As it is.
   World present() const { return without( {} ); }
   /// Without what leaves with other units; and without the unit as well.
   World before() const { return without( others ); }
   World after() const {
      std::set< std::string > all = others;
      all.insert( unit.begin(), unit.end() );
      return without( all );
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
      for ( const std::string & name : others )
         result.leavingToo[name] = "u2";
      for ( const auto & [name, rates] : load )
         if ( !unit.count( name ) )
            result.loads[name] = { rates, rates };
      result.speeds = speeds;
      DataPlane::RouteTable table;
      table.links = links;
      for ( const Route & route : routes ) {
         auto & classes = table.classes;
         auto at = std::find_if( classes.begin(), classes.end(), [&]( const auto & one ) {
            return one.choices == route.choices;
         } );
         if ( at == classes.end() )
            at = classes.insert( at, { route.choices, 0, {} } );
         ++at->destinations;
         at->examples.push_back( route.destination );
      }
      result.routes = std::make_shared< const DataPlane::RouteTable >( table );
      result.session = "192.0.2.1";
      result.way.emplace();
      for ( const Route & route : sessionRoutes ) {
         DataPlane::Choices & all = result.way->choices;
         if ( !all.empty() )
            result.way->lessSpecific.push_back( { route.destination, all.size() } );
         all.insert( all.end(), route.choices.begin(), route.choices.end() );
      }
      return result;
   }

   /// For whoever has to find out why a property does not hold.
   void show() const {
      for ( const auto & link : links ) {
         RC_LOG() << link.name << ( link.up ? "" : " down" )
                  << ( unit.count( link.name ) ? " in the unit" : "" )
                  << ( others.count( link.name ) ? " leaves" : "" ) << " "
                  << ( speeds.count( link.name ) ? speeds.at( link.name ) : 0 ) << " bps, carries "
                  << load.at( link.name ).out;
         for ( const auto & need : link.needs ) {
            RC_LOG() << ", needs";
            for ( const std::string & below : need )
               RC_LOG() << " " << below;
         }
         RC_LOG() << "\n";
      }
      for ( const Route & route : routes ) {
         RC_LOG() << route.destination;
         for ( const auto & hops : route.choices ) {
            RC_LOG() << ", over";
            for ( const auto & hop : hops )
               RC_LOG() << " " << hop.link << ( hop.usable ? "" : " (unusable)" );
         }
         RC_LOG() << "\n";
      }
   }

   std::vector< DataPlane::RoutedLink > links;
   std::map< std::string, PlanRates > load;
   std::map< std::string, double > speeds; ///< of ports
   std::set< std::string > unit, others, enslaved;
   std::vector< Route > routes;
   std::vector< Route > sessionRoutes; ///< that the address of the session is in, the longest prefix first

 private:
   World without( const std::set< std::string > & names ) const {
      World result;
      result.speeds = speeds;
      result.gone = names;
      for ( const auto & link : links ) {
         result.links[link.name] = link;
         if ( names.count( link.name ) )
            result.links[link.name].up = false;
      }
      return result;
   }
   void add( const std::string & name, const std::vector< std::vector< std::string > > & needs ) {
      links.push_back( { name, *rc::gen::inRange( 0, 6 ) != 0, false, needs } );
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
   /// Members of port-channels have no routes of their own.
   std::string linkOfRoute() const {
      const std::string & name = links[*rc::gen::inRange< std::size_t >( 0, links.size() )].name;
      for ( const auto & link : links )
         if ( enslaved.count( name ) && link.aggregate && link.needs.front().front() == name )
            return link.name;
      return enslaved.count( name ) ? "nowhere" : name;
   }
   DataPlane::Choices choices() const {
      DataPlane::Choices result;
      for ( int i = *rc::gen::inRange( 1, 4 ); i > 0; --i ) {
         DataPlane::EqualHops hops;
         for ( int j = *rc::gen::inRange( 0, 4 ); j > 0; --j )
            hops.push_back(
               { *rc::gen::inRange( 0, 12 ) == 0 ? "nowhere" // a link that nobody has described
                                                 : linkOfRoute(),
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
   const World before = story.before(), after = story.after();
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
   // A route over links that are all set down is gone; another one stays, works or not, and so does what refuses.
   const auto taken = [&]( const World & world ) -> const Route * {
      for ( const Route & route : story.sessionRoutes ) {
         bool isGone = !world.refuses( route.choices );
         for ( const auto & hops : route.choices )
            for ( const auto & hop : hops )
               isGone = isGone && world.isSetDown( hop.link );
         if ( !world.ways( route.choices ).empty() )
            return &route;
         if ( !isGone )
            return nullptr;
      }
      return nullptr;
   };
   const Route * const own = &story.sessionRoutes.front();
   const bool is = taken( story.present() ) == own;
   const bool before = taken( story.before() ) != nullptr;
   const Route * const left = taken( story.after() );
   const bool after = left != nullptr;
   const auto findings = judge( story.facts() );
   RC_CLASSIFY( before && !after, "cut off" );
   RC_CLASSIFY( is && after && left != own, "less specific" );
   const PlanFinding * const finding = findingOf( findings, PlanCode::lockOut );
   RC_ASSERT( ( is && !after ) == ( finding != nullptr ) );
   if ( finding )
      RC_ASSERT( ( finding->severity == PlanSeverity::blocking ) == before );
   // A way that goes on may have lost the very port that leads there.
   const bool doubted = findingOf( findings, PlanCode::unknownSession ) != nullptr;
   RC_ASSERT( ( is ? !doubted || after : doubted ) );
   if ( is && after && left != own ) {
      const PlanFinding * const doubt = findingOf( findings, PlanCode::unknownSession );
      RC_ASSERT( doubt != nullptr );
      RC_ASSERT( doubt->text.find( "route " + left->destination + " over " ) != std::string::npos );
   }
}

RC_GTEST_PROP( PlanProperty, nothingIsFoundWhenNothingIsTakenAway, () ) {
   Story story;
   story.unit.clear();
   story.others.clear();
   for ( const PlanFinding & finding : judge( story.facts() ) )
      RC_ASSERT( finding.code == PlanCode::noSteering || finding.code == PlanCode::unknownSession );
}

namespace {

bool isCapacityBlocked( const std::vector< PlanFinding > & findings ) {
   return std::any_of( findings.begin(), findings.end(), []( const PlanFinding & finding ) {
      return finding.code == PlanCode::capacity && finding.severity == PlanSeverity::blocking;
   } );
}

/// What is on its way to somewhere: one of many packets streams of which loads are made, so that it is known of each where
/// it goes on when links are taken away.
struct Stream {
   const Route * route;
   double rate;
   std::vector< std::string >
      path; ///< the links that it goes through, from the one of the route to what carries it
};

/// All ways down from a link to what carries its traffic.
std::vector< std::vector< std::string > > pathsDown( const World & world, const std::string & name ) {
   if ( !world.works( name ) )
      return {};
   const DataPlane::RoutedLink & link = world.links.at( name );
   if ( link.aggregate || link.needs.empty() )
      return { { name } };
   std::vector< std::vector< std::string > > result;
   for ( const std::string & below : link.needs.back() )
      for ( std::vector< std::string > path : pathsDown( world, below ) ) {
         path.insert( path.begin(), name );
         result.push_back( path );
      }
   return result;
}

std::vector< std::vector< std::string > > pathsOf( const World & world, const Route & route ) {
   std::vector< std::vector< std::string > > result;
   for ( const auto & hop : world.ways( route.choices ) )
      for ( const auto & path : pathsDown( world, hop.link ) )
         result.push_back( path );
   return result;
}

/// Streams placed on their paths one after the other, in all ways that there are.
class Placement {
 public:
   Placement( const World & after, const std::vector< Stream > & streams ) : after_( after ) {
      for ( const Stream & stream : streams ) {
         const bool stays = std::all_of(
                               stream.path.begin(), stream.path.end(),
                               [&]( const auto & link ) { return after.works( link ); } ) &&
                            hasHop( after.ways( stream.route->choices ), stream.path.front() );
         if ( stays )
            carried_[stream.path.back()] += stream.rate;
         else
            moving_.push_back( stream );
      }
   }
   /// Nothing: there are too many ways to try all.
   std::optional< bool > fits() {
      left_ = 20'000;
      const bool result = place( 0 );
      return left_ == 0 && !result ? std::nullopt : std::optional( result );
   }

 private:
   static bool hasHop( const DataPlane::EqualHops & hops, const std::string & link ) {
      return std::any_of( hops.begin(), hops.end(), [&]( const auto & hop ) { return hop.link == link; } );
   }
   bool place( std::size_t number ) {
      if ( number == moving_.size() )
         return true;
      for ( const auto & path : pathsOf( after_, *moving_[number].route ) ) {
         if ( left_ == 0 )
            return false;
         --left_;
         double & carried = carried_[path.back()];
         // What was too much before remains so; nothing may be added to it.
         const bool has = carried + moving_[number].rate <= after_.speed( path.back() ) + 1;
         carried += moving_[number].rate;
         if ( has && place( number + 1 ) )
            return true;
         carried -= moving_[number].rate;
      }
      return false;
   }

   const World & after_;
   std::vector< Stream > moving_;
   std::map< std::string, double > carried_;
   unsigned left_ = 0;
};

} // namespace

RC_GTEST_PROP( PlanProperty, capacityBlocksNothingThatFitsInAnyWay, () ) {
   Story story;
   const World present = story.present(), after = story.after();
   std::vector< Stream > streams;
   for ( auto & [name, rates] : story.load )
      rates = PlanRates();
   // A few big ones; of routes that have another way, for the others are cut off.
   for ( const Route & route : story.routes )
      for ( int i = *rc::gen::inRange( 0, 3 ); i > 0 && streams.size() < 6; --i ) {
         const auto paths = pathsOf( present, route );
         if ( paths.empty() || after.ways( route.choices ).empty() )
            continue;
         const auto & path = paths[*rc::gen::inRange< std::size_t >( 0, paths.size() )];
         streams.push_back( { &route, *rc::gen::inRange( 1, 12 ) * 1e8, path } );
         for ( const std::string & link : path )
            story.load[link].out += streams.back().rate;
         // Of a port-channel one member has it.
         const DataPlane::RoutedLink & carrier = present.links.at( path.back() );
         for ( const auto & need : carrier.needs )
            for ( const std::string & member : need )
               if ( carrier.aggregate && present.works( member ) ) {
                  story.load[member].out += streams.back().rate;
                  break;
               }
      }
   const bool blocked = isCapacityBlocked( judge( story.facts() ) );
   RC_CLASSIFY( blocked );
   if ( !blocked )
      return;
   // It may also be a port-channel that cannot do without a member.
   for ( const auto & link : story.links )
      if (
         link.aggregate && after.works( link.name ) &&
         story.load.at( link.name ).out > after.speed( link.name ) )
         return;
   story.show();
   for ( const Stream & stream : streams ) {
      RC_LOG() << stream.route->destination << " " << stream.rate << " over";
      for ( const std::string & link : stream.path )
         RC_LOG() << " " << link;
      RC_LOG() << "\n";
   }
   RC_ASSERT( Placement( after, streams ).fits().value_or( false ) == false );
}

RC_GTEST_PROP( PlanProperty, capacityBlocksWhenSomeHaveMoreThanAllHasRoomForToWhichTheyMoveIt, () ) {
   // Ports only, of which each is used by some routes: then all subsets of those that leave can be looked at.
   Story story;
   std::erase_if( story.links, []( const auto & link ) { return !link.needs.empty(); } );
   for ( auto * names : { &story.unit, &story.others } )
      std::erase_if(
         *names, [&]( const auto & name ) { return !name.starts_with( "et" ) || name.ends_with( ".7" ); } );
   story.others.clear();
   const World before = story.before(), after = story.after();
   std::map< std::string, std::set< std::string > > moves;
   for ( const Route & route : story.routes )
      for ( const auto & hop : before.ways( route.choices ) )
         if ( !after.works( hop.link ) )
            for ( const auto & other : after.ways( route.choices ) )
               moves[hop.link].insert( other.link );
   const std::vector< std::pair< std::string, std::set< std::string > > > ports( moves.begin(), moves.end() );
   bool missing = false;
   for ( unsigned some = 1; some < 1u << ports.size(); ++some ) {
      PlanRates moved, room;
      std::set< std::string > to;
      for ( unsigned i = 0; i < ports.size(); ++i )
         if ( some & 1u << i ) {
            moved.in += story.load.at( ports[i].first ).in;
            moved.out += story.load.at( ports[i].first ).out;
            to.insert( ports[i].second.begin(), ports[i].second.end() );
         }
      for ( const std::string & name : to ) {
         room.in += std::max( 0.0, after.speed( name ) - story.load.at( name ).in );
         room.out += std::max( 0.0, after.speed( name ) - story.load.at( name ).out );
      }
      missing = missing || moved.in > room.in || moved.out > room.out;
   }
   const PlanFacts facts = story.facts();
   RC_CLASSIFY( missing );
   RC_ASSERT( missing == isCapacityBlocked( judge( facts ) ) );
   // Whose loads are asked for is all that has to be known.
   const auto asked = questionsOf( facts ).loads;
   for ( const auto & [from, to] : ports )
      RC_ASSERT( std::includes( asked.begin(), asked.end(), to.begin(), to.end() ) );
}

RC_GTEST_PROP( Plan, dependsOnNoOtherSpeedsThanItAsksFor, () ) {
   const Story story;
   story.show();
   PlanFacts facts = story.facts();
   const auto all = judge( facts );
   const PlanQuestions questions = questionsOf( facts );
   const std::size_t left = std::erase_if(
      facts.speeds, [&]( const auto & speed ) { return !questions.speeds.count( speed.first ); } );
   RC_CLASSIFY( left > 0, "some are not asked for" );
   RC_ASSERT( all == judge( facts ) );
}

} // namespace Agent
