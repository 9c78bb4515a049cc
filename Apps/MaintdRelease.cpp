// All links are let go of, without an agent that runs.

#include "Apps/Maintd.h"

#include "Agent/Model/StateText.h"
#include "Apps/MaintdEntities.h"

#include <filesystem>
#include <map>
#include <sstream>

namespace Apps {

namespace {

void isNotKept( Released & result, const std::string & why ) {
   result.outcome = Released::Outcome::notKept;
   result.problem =
      "that the links are released by hand is written nowhere, and an agent that is started may shut them "
      "again: " +
      why;
}

/// Seconds that links get to come up.
constexpr double releasePatience = 30;

std::string joined( const std::vector< std::string > & names ) {
   std::string result;
   for ( const std::string & name : names )
      result += ( result.empty() ? "" : ", " ) + name;
   return result;
}

/// Whether two ids are of different networks of one kernel that has not been started again: what is before the last point
/// is the kernel's boot, and what is behind it the namespace.
bool isOtherSwitch( const Vel::String & one, const Vel::String & other ) {
   const auto machine = []( const Vel::String & id ) { return id.substr( 0, id.rfind( '.' ) ); };
   return one != other && machine( one ) == machine( other );
}

} // namespace

Released Maintd::releaseAll() {
   Released result;
   const auto isThere = []( const std::string & path ) {
      std::error_code ignored;
      return std::filesystem::status( path, ignored ).type() != std::filesystem::file_type::not_found;
   };
   if ( !isThere( options_.stateDir + "/state.mdb" ) && !isThere( options_.runtimeDir + "/unstored" ) )
      return result;
   if ( result.problem = openStore(); !result.problem.empty() ) {
      result.outcome =
         lock_.inUse() || runtimeLock_.inUse() ? Released::Outcome::inUse : Released::Outcome::unknown;
      return result;
   }
   result.left = leftByUnits();
   if ( entities_->journal->entrys() != 0 )
      releaseHeld( result );
   else {
      Agent::releaseAllByHand( *entities_->journal, *entities_->cause );
      if ( const auto status = persistence_->commit(); !status.ok() && !fallbackEngine_->committed() )
         isNotKept( result, status.text() );
      // Nobody may come after this one who could bring it into the store.
      static_cast< void >( fallbackEngine_->settle() );
   }
   for ( std::string & line : leftOfLinks() )
      result.left.push_back( std::move( line ) );
   return result;
}

void Maintd::releaseHeld( Released & result ) {
   result.outcome = Released::Outcome::held;
   result.held = heldLinks();
   for ( const auto step : { &Maintd::readConfiguration, &Maintd::makeClock, &Maintd::makeSwitch } )
      if ( result.problem = ( this->*step )(); !result.problem.empty() )
         return;
   std::map< std::string, Vel::String > bootIds;
   for ( const auto & [intf, entry] : entities_->journal->entryRange() )
      bootIds.emplace( intf.name(), entry->bootId() );
   makeAgent();
   // Nothing is sampled here, so links come back also when counters cannot be read.
   loop_->timersMayRunIs( nullptr );
   loop_->beforeTasksIs( nullptr );
   if ( const DataPlane::Outcome outcome = executor_->start(); !outcome.ok() ) {
      result.problem = "switch: " + outcome.text();
      return;
   }
   // Those are as shut as before, and nothing of this is committed.
   for ( const auto & [name, bootId] : bootIds )
      if ( isOtherSwitch( bootId, world_.switch_->bootId() ) ) {
         result.problem = name + " is held in another network namespace of this machine; release it there";
         return;
      }
   std::vector< Wire::IntfId > links;
   for ( const auto & [intf, entry] : entities_->journal->entryRange() )
      links.push_back( intf );
   Agent::releaseAllByHand( *entities_->journal, *entities_->cause );
   releaseTick_.is( wheel_, this ).hasNotificationActiveIs( true );
   releaseTick();
   loop_->run();
   for ( const Wire::IntfId & intf : links )
      if ( !entities_->journal->entry( intf ) )
         result.links.emplace_back( intf.name() );
   result.held = heldLinks();
   if ( result.held.empty() ) {
      result.outcome = Released::Outcome::done;
      if ( const std::string problem = commits_->keepAtEnd(); !problem.empty() )
         isNotKept( result, problem );
      return;
   }
   const Vel::String why = executor_->problem();
   result.problem = "links that are still held: " + joined( result.held ) + ( why.empty() ? "" : "; " + why );
}

std::vector< std::string > Maintd::heldLinks() const {
   std::vector< std::string > result;
   for ( const auto & [intf, entry] : entities_->journal->entryRange() )
      result.emplace_back( intf.name() );
   return result;
}

/// No stage is run here, and what stages have recorded may be all that says how to put it back.
std::vector< std::string > Maintd::leftByUnits() const {
   using Maintenance::Unit::UnitState;
   std::vector< std::string > result;
   for ( const auto & [unit, status] : entities_->unitStatusDir->statusRange() ) {
      if ( status->state() == UnitState::normal || status->state() == UnitState::none )
         continue;
      result.push_back(
         "unit " + unit + " is not normal (" + Agent::unitStateText( status->state() ) + "), and stays so" );
      const auto * const commands = entities_->unitCommandsDir->unit( unit );
      if ( !commands )
         continue;
      for ( const auto & [stage, command] : commands->stageRange() )
         if ( !command->recorded().empty() )
            result.push_back(
               "unit " + unit + ": what its stage " + stage + " has done stays; it has recorded " +
               command->recorded() );
         else if ( command->state() != Agent::CommandState::none )
            result.push_back( "unit " + unit + ": what its stage " + stage + " has done stays" );
   }
   return result;
}

/// Only an agent gives that back; where there will be none, somebody has to know of it.
std::vector< std::string > Maintd::leftOfLinks() const {
   std::vector< std::string > result;
   for ( const auto & [intf, link] : entities_->journal->unrestoredRange() ) {
      result.push_back(
         std::string( intf.name() ) + ": " + link->why() +
         "; an agent that runs gives it back when it can:" );
      std::istringstream lines( link->left() );
      for ( std::string line; std::getline( lines, line ); )
         result.push_back( "   " + line );
   }
   return result;
}

void Maintd::releaseTick() {
   // What waited for a carrier that is there by now is given back, too.
   const bool isOver = entities_->journal->entrys() == 0 && !executor_->isRestoring();
   if ( isOver || now() - started_ > releasePatience )
      loop_->stop();
   releaseTick_->timeMinIs( now() + 1 );
}

} // namespace Apps
