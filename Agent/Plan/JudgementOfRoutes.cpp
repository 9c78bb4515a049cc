#include "Agent/Plan/Judging.h"

/// What cannot be reached any more, and from where.
namespace Agent {

using DataPlane::EqualHops;
using DataPlane::NextHop;
using DataPlane::RouteClass;

namespace {

std::set< std::string > namesIn( const PlanFacts & facts ) {
   std::set< std::string > result;
   for ( const PlanInterface & interface : facts.interfaces )
      result.insert( interface.name );
   return result;
}

/// Where on a bridge a hop of the way to the session leads; null if over none.
const DataPlane::BehindPort * behindOf( const Judging & judging, const NextHop & hop ) {
   const auto & way = judging.facts.way;
   return way && hop.behind != 0 ? &way->behind.at( hop.behind - 1U ) : nullptr;
}

/// The port of the bridge; empty: not known, or over none. One that is down already is none behind which somebody is now.
std::string portOf( const Judging & judging, const NextHop & hop ) {
   const DataPlane::BehindPort * const behind = behindOf( judging, hop );
   return behind && judging.present.works( behind->port ) ? behind->port : "";
}

/// Whether what is sent that way gets no further than the bridge below it, which stays up.
bool endsAtBridge( const Judging & judging, const Topology & topology, const NextHop & hop ) {
   if ( !topology.works( hop ) )
      return false;
   const std::string port = portOf( judging, hop );
   return !port.empty() && !topology.works( port );
}
/// Of ways of which one works at least: whether none that works gets any further.
bool endAtBridges( const Judging & judging, const Topology & topology, const EqualHops & hops ) {
   return std::none_of( hops.begin(), hops.end(), [&]( const NextHop & hop ) {
      return topology.works( hop ) && !endsAtBridge( judging, topology, hop );
   } );
}

/// What ways depend on: gathered of many routes first, since few links are below them.
struct Cut {
   std::set< std::string > links;  ///< that would be taken, were it not for the unit
   std::set< std::string > others; ///< that work, and leave with other units

   void add( const Judging & judging, const DataPlane::Choices & choices ) {
      for ( const NextHop & hop : *judging.before.taken( choices ) )
         if ( judging.before.works( hop ) )
            links.insert( endsAtBridge( judging, judging.after, hop ) ? portOf( judging, hop ) : hop.link );
      // The route goes on with these, which lead no further.
      if ( const EqualHops * const then = judging.after.taken( choices ) )
         for ( const NextHop & hop : *then )
            if ( endsAtBridge( judging, judging.after, hop ) )
               links.insert( portOf( judging, hop ) );
      addOthers( judging, choices );
   }
   void addOthers( const Judging & judging, const DataPlane::Choices & choices ) {
      for ( const EqualHops & hops : choices ) {
         for ( const NextHop & hop : hops )
            if ( judging.present.works( hop ) && !judging.before.works( hop ) )
               others.insert( hop.link );
            else if ( endsAtBridge( judging, judging.before, hop ) )
               others.insert( portOf( judging, hop ) );
         if ( hops.empty() )
            return;
      }
   }
   /// The interfaces of the unit among what is below them.
   std::vector< std::string > ofUnit( const Judging & judging ) const {
      std::set< std::string > below;
      for ( const std::string & link : links )
         below.merge( judging.after.removedBelow( link ) );
      const std::set< std::string > own = namesIn( judging.facts );
      std::erase_if( below, [&]( const std::string & name ) {
         return !own.count( name ) || judging.before.removed( name );
      } );
      return { below.begin(), below.end() };
   }
   std::set< std::string > ofOthers( const Judging & judging ) const {
      std::set< std::string > below;
      for ( const auto * some : { &links, &others } )
         for ( const std::string & link : *some )
            below.merge( judging.before.removedBelow( link ) );
      return below;
   }
   /// "; et2 is on its way out with u2", if anything is.
   std::string othersText( const Judging & judging ) const {
      const std::string text = judging.leavingText( ofOthers( judging ) );
      return text.empty() ? "" : "; " + text;
   }
};

/// Why ways that work on may not lead to one address all the same; empty: nothing is known of that kind.
std::string doubtOf( const Judging & judging, const EqualHops & hops ) {
   for ( const NextHop & hop : hops ) {
      if ( !judging.after.works( hop ) )
         continue;
      const std::string reached = judging.facts.session + " is reached over " + hop.link;
      if ( endsAtBridge( judging, judging.after, hop ) )
         return reached + " too, and there through " + portOf( judging, hop );
      const std::string port = portOf( judging, hop ), last = port.empty() ? hop.link : port;
      for ( const std::string & below : judging.after.chain( last ) )
         if ( judging.after.find( below )->tunnel )
            return reached + ", and nobody knows over which links " + below + " sends its packets";
      std::set< std::string > lost;
      for ( const std::string & carrier : judging.before.carriers( last ) )
         if ( !judging.after.works( carrier ) )
            lost.insert( carrier );
      const DataPlane::BehindPort * const behind = behindOf( judging, hop );
      if ( !lost.empty() )
         return reached + ", perhaps through " + planList( { lost.begin(), lost.end() } ) +
                ( behind && !behind->unseen.empty() ? ": " + behind->unseen : "" );
   }
   return "";
}

/// The less specific route of which some choice of the way to the session is; null if it is of the route itself.
const DataPlane::LessSpecificRoute *
lessSpecificOf( const DataPlane::AddressWay & way, const EqualHops * choice ) {
   const auto number = static_cast< std::size_t >( choice - way.choices.data() );
   const DataPlane::LessSpecificRoute * result = nullptr;
   for ( const DataPlane::LessSpecificRoute & each : way.lessSpecific )
      if ( each.first <= number )
         result = &each;
   return result;
}

/// What is taken of the way to the session: one of its own route, or, if all links of that are set down, of a less specific
/// one. As long as one is only without a carrier, its route stays and is taken, though it leads nowhere.
const EqualHops * takenOf( const DataPlane::AddressWay & way, const Topology & topology ) {
   const EqualHops * const taken = topology.taken( way.choices );
   if ( !taken || !lessSpecificOf( way, taken ) )
      return taken;
   for ( const EqualHops * before = way.choices.data(); before != taken; ++before )
      for ( const NextHop & hop : *before )
         if ( !topology.isSetDown( hop.link ) )
            return nullptr;
   return taken;
}

/// Why a way that is left, and is taken since no better one is, may not lead to the session; empty: it is as good as any.
std::string doubtOfLessSpecific( const Judging & judging, const EqualHops * left ) {
   const DataPlane::AddressWay & way = *judging.facts.way;
   const DataPlane::LessSpecificRoute * const route = lessSpecificOf( way, left );
   if ( !route )
      return "";
   std::set< std::string > gone, over;
   for ( const EqualHops * hops = way.choices.data(); hops != left; ++hops )
      for ( const NextHop & hop : *hops )
         if ( judging.present.works( hop ) )
            gone.merge( judging.after.removedBelow( hop.link ) );
   for ( const NextHop & hop : *left )
      if ( judging.after.works( hop ) )
         over.insert( hop.link );
   const std::string leaving = judging.leavingText( gone );
   return "without " + planList( { gone.begin(), gone.end() } ) + " the less specific route " +
          route->destination + " over " + planList( { over.begin(), over.end() } ) +
          " is taken, which need not lead to " + judging.facts.session +
          ( leaving.empty() ? "" : "; " + leaving );
}

/// Whether the first choice is to refuse it, as opposed to ways that do not work.
bool isRefused( const DataPlane::AddressWay & way ) {
   return !way.choices.empty() && way.choices.front().empty();
}

std::string routesText( const std::vector< std::string > & examples, std::uint64_t all ) {
   constexpr std::size_t most = 3;
   std::string result;
   const std::size_t named = std::min( examples.size(), all > most + 1 ? most : most + 1 );
   for ( std::size_t i = 0; i < named; ++i )
      result.append( i == 0 ? "" : i + 1 == all ? " and " : ", " ).append( examples[i] );
   if ( all > named )
      result.append( " and " ).append( std::to_string( all - named ) ).append( " more" );
   return result;
}

} // namespace

void Judging::judgePaths() {
   Cut cut;
   std::vector< std::string > examples;
   std::uint64_t destinations = 0;
   for ( const RouteClass & routes : facts.routes->classes ) {
      if ( !before.taken( routes.choices ) || after.taken( routes.choices ) )
         continue;
      cut.add( *this, routes.choices );
      destinations += routes.destinations;
      examples.insert( examples.end(), routes.examples.begin(), routes.examples.end() );
   }
   if ( destinations == 0 )
      return;
   PlanFinding & finding = add(
      PlanCode::lastPath, facts.steering.empty() ? PlanSeverity::blocking : PlanSeverity::warning,
      cut.ofUnit( *this ) );
   finding.text = routesText( examples, destinations ) + ( destinations == 1 ? " has" : " have" ) +
                  " no other way than " + planList( finding.interfaces ) + cut.othersText( *this );
   if ( !facts.steering.empty() )
      finding.text += "; stage " + facts.steering.front() +
                      " says that it leads traffic over others, which cannot be seen from here";
   finding.numbers = { { "destinations", static_cast< double >( destinations ) } };
}

void Judging::judgeSession() {
   if ( facts.session.empty() ) {
      add( PlanCode::unknownSession, PlanSeverity::info, {} ).text =
         "nobody has said from where this session comes; whether it would be cut off is not judged";
      return;
   }
   if ( !facts.way || facts.way->local )
      return;
   const DataPlane::AddressWay & way = *facts.way;
   // The switch has said which route it takes: if that is seen not to work, so is no other one taken for it now.
   const EqualHops * const now = present.taken( way.choices );
   if ( !way.problem.empty() || !now || lessSpecificOf( way, now ) ) {
      add( PlanCode::unknownSession, PlanSeverity::warning, {} ).text =
         "whether this session would be cut off is not known: " +
         ( !way.problem.empty() ? way.problem
           : isRefused( way )   ? "routes refuse what is sent to " + facts.session
           : now                ? "its route " + way.destination + " leads over links that do not work"
                                : "no way to " + facts.session + " is known" );
      return;
   }
   if ( const EqualHops * const then = takenOf( way, after ); then && !endAtBridges( *this, after, *then ) ) {
      std::string doubt = doubtOfLessSpecific( *this, then );
      if ( const std::string other = way.doubt.empty() ? doubtOf( *this, *then ) : way.doubt; !other.empty() )
         doubt += ( doubt.empty() ? "" : "; " ) + other;
      if ( !doubt.empty() )
         add( PlanCode::unknownSession, PlanSeverity::warning, {} ).text =
            "whether this session would be cut off is not known: " + doubt;
      return;
   }
   Cut cut;
   const std::string begin =
      "the way to " + facts.session + ", from where this session comes, leaves through ";
   // Then it is not the unit that cuts it off, but he who works in it should know.
   const EqualHops * const till = takenOf( way, before );
   if ( !till || endAtBridges( *this, before, *till ) ) {
      cut.addOthers( *this, way.choices );
      const std::set< std::string > others = cut.ofOthers( *this );
      PlanFinding & finding =
         add( PlanCode::lockOut, PlanSeverity::warning, { others.begin(), others.end() } );
      finding.text = begin + planList( finding.interfaces ) + " only" + cut.othersText( *this );
      return;
   }
   cut.add( *this, way.choices );
   PlanFinding & finding = add( PlanCode::lockOut, PlanSeverity::blocking, cut.ofUnit( *this ) );
   finding.text = begin + planList( finding.interfaces ) + " only" + cut.othersText( *this ) +
                  ( way.doubt.empty() ? "" : "; but " + way.doubt );
}

} // namespace Agent
