#include "Agent/Plan/Judging.h"

/// What cannot be reached any more, and from where.
namespace Agent {

using DataPlane::EqualHops;
using DataPlane::NextHop;
using DataPlane::RouteClass;

namespace {

/// The interfaces of the unit that the ways that work now depend on.
void addRemoved( const Judging & judging, const EqualHops & hops, std::set< std::string > & into ) {
   for ( const NextHop & hop : hops )
      if ( judging.before.works( hop ) )
         into.merge( judging.after.removedBelow( hop.link ) );
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
   std::set< std::string > interfaces;
   std::vector< std::string > examples;
   std::uint64_t destinations = 0;
   for ( const RouteClass & routes : facts.routes.classes ) {
      const EqualHops * const now = before.taken( routes.choices );
      if ( !now || after.taken( routes.choices ) )
         continue;
      addRemoved( *this, *now, interfaces );
      destinations += routes.destinations;
      examples.insert( examples.end(), routes.examples.begin(), routes.examples.end() );
   }
   if ( destinations == 0 )
      return;
   PlanFinding & finding = add(
      PlanCode::lastPath, facts.steering.empty() ? PlanSeverity::blocking : PlanSeverity::warning,
      { interfaces.begin(), interfaces.end() } );
   finding.text = routesText( examples, destinations ) + ( destinations == 1 ? " has" : " have" ) +
                  " no other way than " + planList( finding.interfaces );
   if ( !facts.steering.empty() )
      finding.text += "; stage " + facts.steering.front() +
                      " asks the neighbours to take others, which cannot be seen from here";
   finding.numbers = { { "destinations", static_cast< double >( destinations ) } };
}

void Judging::judgeSession() {
   if ( facts.session.empty() || !facts.way || facts.way->local )
      return;
   const DataPlane::AddressWay & way = *facts.way;
   const EqualHops * const now = before.taken( way.choices );
   if ( !way.problem.empty() || !now ) {
      add( PlanCode::unknownSession, PlanSeverity::warning, {} ).text =
         "whether this session would be cut off is not known: " +
         ( way.problem.empty() ? "no way to " + facts.session + " is known" : way.problem );
      return;
   }
   if ( after.taken( way.choices ) )
      return;
   std::set< std::string > interfaces;
   addRemoved( *this, *now, interfaces );
   PlanFinding & finding =
      add( PlanCode::lockOut, PlanSeverity::blocking, { interfaces.begin(), interfaces.end() } );
   finding.text = "the way to " + facts.session + ", from where this session comes, leaves through " +
                  planList( finding.interfaces ) + " only";
}

} // namespace Agent
