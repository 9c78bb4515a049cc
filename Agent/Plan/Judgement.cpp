#include "Agent/Plan/Judgement.h"

#include "Agent/Plan/Judging.h"
#include "Api/Values.h"

#include <algorithm>
#include <cmath>

namespace Agent {

namespace {

std::set< std::string > leavingWithOthers( const PlanFacts & facts ) {
   std::set< std::string > result;
   for ( const auto & [interface, unit] : facts.leavingToo )
      result.insert( interface );
   return result;
}

std::set< std::string > leaving( const PlanFacts & facts ) {
   std::set< std::string > result = leavingWithOthers( facts );
   for ( const PlanInterface & interface : facts.interfaces )
      if ( interface.leaves )
         result.insert( interface.name );
   return result;
}

/// One finding for all interfaces of which something holds.
template < class Holds >
std::vector< std::string > namesOf( const std::vector< PlanInterface > & interfaces, const Holds & holds ) {
   std::vector< std::string > result;
   for ( const PlanInterface & interface : interfaces )
      if ( interface.leaves && holds( interface ) )
         result.push_back( interface.name );
   return result;
}

} // namespace

const char * stringValue( PlanSeverity severity ) {
   return severity == PlanSeverity::blocking  ? "blocking"
          : severity == PlanSeverity::warning ? "warning"
                                              : "info";
}

const char * stringValue( PlanAction action ) {
   switch ( action ) {
   case PlanAction::watch:
      return "watched";
   case PlanAction::shutWhenDrained:
      return "shut-when-drained";
   case PlanAction::shutAtLatest:
      return "shut-at-latest";
   case PlanAction::none:
      break;
   }
   return "not-watched";
}

PlanAction actionOf( const PlanInterface & interface ) {
   if ( !interface.notWatched.empty() )
      return PlanAction::none;
   if ( !interface.shutdown )
      return PlanAction::watch;
   return interface.shutdownMaxDelaySeconds ? PlanAction::shutAtLatest : PlanAction::shutWhenDrained;
}

std::string planList( const std::vector< std::string > & names ) {
   constexpr std::size_t most = 4;
   std::string result;
   const std::size_t named = names.size() > most ? most - 1 : names.size();
   for ( std::size_t i = 0; i < named; ++i ) {
      const bool last = i + 1 == names.size();
      result.append( i == 0 ? "" : last ? " and " : ", " ).append( names[i] );
   }
   if ( names.size() > named )
      result.append( " and " ).append( std::to_string( names.size() - named ) ).append( " more" );
   return result;
}

Judging::Judging( const PlanFacts & theFacts )
   : facts( theFacts ),
     present( facts.routes->links, {} ),
     before( facts.routes->links, leavingWithOthers( facts ) ),
     after( facts.routes->links, leaving( facts ) ),
     moves( facts, present, before, after ) {}

PlanFinding &
Judging::add( const char * code, PlanSeverity severity, std::vector< std::string > interfaces ) {
   findings.push_back( { code, severity, std::move( interfaces ), {}, {} } );
   return findings.back();
}

std::string Judging::leavingText( const std::set< std::string > & interfaces ) const {
   std::map< std::string, std::vector< std::string > > byUnit;
   for ( const std::string & interface : interfaces )
      if ( const auto at = facts.leavingToo.find( interface ); at != facts.leavingToo.end() )
         byUnit[at->second].push_back( interface );
   std::string result;
   for ( const auto & [unit, names] : byUnit )
      result.append( result.empty() ? "" : "; " )
         .append( planList( names ) )
         .append( names.size() == 1 ? " is on its way out with " : " are on their way out with " )
         .append( unit );
   return result;
}

bool Judging::losesMembers( const DataPlane::RoutedLink & link ) const {
   return link.aggregate && after.works( link.name ) &&
          before.members( link ).size() != after.members( link ).size();
}

void Judging::judgeUnit() {
   for ( const PlanRedundancy & group : facts.redundancy ) {
      if ( group.out.size() < group.maxOut )
         continue;
      PlanFinding & finding = add( PlanCode::degraded, PlanSeverity::blocking, {} );
      finding.text = "of redundancy group " + group.name + " no more than " + std::to_string( group.maxOut ) +
                     " may be out, and " + planList( group.out ) +
                     ( group.out.size() == 1 ? " is" : " are" ) + " already";
      finding.numbers = {
         { "out", static_cast< double >( group.out.size() ) },
         { "max-out", static_cast< double >( group.maxOut ) } };
   }
   if ( facts.steering.empty() )
      add( PlanCode::noSteering, PlanSeverity::warning, {} ).text =
         "no stage of the unit says that it steers traffic away; somebody else has to";
   if ( !facts.routes->problem.empty() )
      add( PlanCode::unknownRoutes, PlanSeverity::warning, {} ).text =
         "not all routes are known: " + facts.routes->problem;
}

void Judging::judgeInterfaces() {
   const auto & all = facts.interfaces;
   const auto stale = namesOf( all, []( const PlanInterface & interface ) {
      return !interface.load.current || !interface.uncounted.empty();
   } );
   if ( !stale.empty() )
      add( PlanCode::staleCounters, PlanSeverity::warning, stale ).text =
         "what " + planList( stale ) + ( stale.size() == 1 ? " carries" : " carry" ) +
         " now is not known: there are no fresh counters";
   // Of each profile by itself, since it is the profile that is to be changed.
   std::map< std::string, double > low;
   for ( const PlanInterface & interface : all )
      if (
         interface.leaves && interface.thresholdBps && *interface.thresholdBps <= facts.controlPlaneFloorBps )
         low.emplace( interface.profile, *interface.thresholdBps );
   for ( const auto & [profile, threshold] : low ) {
      PlanFinding & finding = add(
         PlanCode::lowThreshold, PlanSeverity::warning,
         namesOf( all, [&name = profile]( const PlanInterface & i ) { return i.profile == name; } ) );
      // Drained is what is below the threshold, so one that is as low will not do.
      const std::string floor = Api::rateText( facts.controlPlaneFloorBps );
      const bool equal = threshold == facts.controlPlaneFloorBps;
      finding.text = "the threshold of profile " + profile + ", " +
                     ( Api::rateText( threshold ) == floor && !equal
                          ? std::to_string( std::llround( threshold ) ) + " bps"
                          : Api::rateText( threshold ) ) +
                     ", is " + ( equal ? "no more than the " : "below the " ) + floor +
                     " that the control plane itself may send: " + planList( finding.interfaces ) +
                     " may never count as drained";
      finding.numbers = {
         { "threshold-bps", threshold }, { "control-plane-floor-bps", facts.controlPlaneFloorBps } };
   }
   judgeNotWatched();
   for ( const PlanInterface & interface : all )
      if ( !interface.shutFor.empty() )
         add( PlanCode::alreadyShut, PlanSeverity::info, { interface.name } ).text =
            interface.name + " is held down already, for " + planList( interface.shutFor );
}

void Judging::judgeNotWatched() {
   std::vector< std::string > missing, vlans;
   for ( const PlanInterface & interface : facts.interfaces ) {
      if ( interface.leaves )
         continue;
      if ( !interface.kind.empty() )
         add( PlanCode::notWatched, PlanSeverity::warning, { interface.name } ).text =
            interface.name + " " + interface.notWatched + "; nothing waits for it";
      else if ( interface.name.starts_with( "vlan " ) )
         vlans.push_back( interface.name );
      else
         missing.push_back( interface.name );
   }
   // A name may be misspelt; ids of VLANs are often given as a range, for those that are still to come.
   for ( const auto & [names, severity] :
         { std::pair( missing, PlanSeverity::warning ), { vlans, PlanSeverity::info } } )
      if ( !names.empty() )
         add( PlanCode::notWatched, severity, names ).text =
            planList( names ) + ( names.size() == 1 ? " does not exist; nothing waits for it"
                                                    : " do not exist; nothing waits for them" );
}

std::vector< PlanFinding > judge( const PlanFacts & facts ) {
   Judging judging( facts );
   judging.judgePaths();
   judging.judgeCapacity();
   judging.judgeSession();
   judging.judgeUnit();
   judging.judgeInterfaces();
   std::stable_sort(
      judging.findings.begin(), judging.findings.end(),
      []( const PlanFinding & a, const PlanFinding & b ) { return a.severity < b.severity; } );
   return std::move( judging.findings );
}

bool isBlocked( const std::vector< PlanFinding > & findings ) {
   return std::any_of( findings.begin(), findings.end(), []( const PlanFinding & finding ) {
      return finding.severity == PlanSeverity::blocking;
   } );
}

PlanQuestions questionsOf( const PlanFacts & facts ) {
   const Judging judging( facts );
   std::set< std::string > carriers = judging.moves.to();
   // A port-channel that loses a member has to carry on with the others.
   for ( const DataPlane::RoutedLink & link : facts.routes->links )
      if ( judging.losesMembers( link ) )
         carriers.insert( link.name );
   PlanQuestions result;
   for ( const std::string & carrier : carriers )
      result.speeds.merge( judging.after.portsOf( carrier ) );
   result.loads = std::move( carriers );
   result.loads.merge( judging.moves.from() );
   for ( const PlanInterface & interface : facts.interfaces )
      result.loads.erase( interface.name );
   return result;
}

} // namespace Agent
