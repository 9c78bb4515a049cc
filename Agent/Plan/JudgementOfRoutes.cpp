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

/// What ways depend on: gathered of many routes first, since few links are below them.
struct Cut {
   std::set< std::string > links;  ///< that would be taken, were it not for the unit
   std::set< std::string > others; ///< that work, and leave with other units

   void add( const Judging & judging, const DataPlane::Choices & choices ) {
      for ( const NextHop & hop : *judging.before.taken( choices ) )
         if ( judging.before.works( hop ) )
            links.insert( hop.link );
      addOthers( judging, choices );
   }
   void addOthers( const Judging & judging, const DataPlane::Choices & choices ) {
      for ( const EqualHops & hops : choices ) {
         for ( const NextHop & hop : hops )
            if ( judging.present.works( hop ) && !judging.before.works( hop ) )
               others.insert( hop.link );
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
   std::set< std::string > lost;
   for ( const NextHop & hop : hops ) {
      if ( !judging.after.works( hop ) )
         continue;
      const std::string reached = judging.facts.session + " is reached over " + hop.link;
      for ( const std::string & below : judging.after.chain( hop.link ) )
         if ( judging.after.find( below )->tunnel )
            return reached + ", and nobody knows over which links " + below + " sends its packets";
      for ( const std::string & port : judging.before.carriers( hop.link ) )
         if ( !judging.after.works( port ) )
            lost.insert( port );
      if ( !lost.empty() )
         return reached + ", perhaps through " + planList( { lost.begin(), lost.end() } );
   }
   return "";
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
   if ( !way.problem.empty() || !present.taken( way.choices ) ) {
      add( PlanCode::unknownSession, PlanSeverity::warning, {} ).text =
         "whether this session would be cut off is not known: " +
         ( way.problem.empty() ? "no way to " + facts.session + " is known" : way.problem );
      return;
   }
   if ( const EqualHops * const then = after.taken( way.choices ) ) {
      const std::string doubt = way.doubt.empty() ? doubtOf( *this, *then ) : way.doubt;
      if ( !doubt.empty() )
         add( PlanCode::unknownSession, PlanSeverity::warning, {} ).text =
            "whether this session would be cut off is not known: " + doubt;
      return;
   }
   Cut cut;
   const std::string begin =
      "the way to " + facts.session + ", from where this session comes, leaves through ";
   // Then it is not the unit that cuts it off, but he who works in it should know.
   if ( !before.taken( way.choices ) ) {
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
