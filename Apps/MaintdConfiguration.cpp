#include "Apps/Maintd.h"

#include "Apps/MaintdEntities.h"
#include "Apps/MaintdViews.h"
#include "Config/Accepted.h"
#include "Config/Differences.h"
#include "Config/ToYaml.h"

#include <spdlog/spdlog.h>

namespace Apps {

using Maintenance::Unit::UnitState;

namespace {
/// The name of the document with the configuration that was accepted last.
constexpr const char * acceptedConfiguration = "configuration";

/// What a configuration says without any effect, when it begins to be followed.
void warn( const Config::Result & result ) {
   for ( const Config::Error & warning : result.warnings )
      spdlog::warn( "{}", warning.warningText() );
}

} // namespace

std::string Maintd::readConfiguration() {
   Config::Result result = Config::load( options_.config );
   for ( const Config::Error & error : result.errors )
      configurationErrors_.push_back( error.text() );
   // What was accepted before still says what the operator meant; a unit that is under way must not be left alone.
   if ( const Vel::String * accepted = persistence_->document( acceptedConfiguration ) ) {
      const Config::Result last = Config::parseAccepted( *accepted, "last accepted configuration" );
      for ( const Config::Error & error : last.errors )
         if ( result )
            spdlog::warn( "{}", error.text() );
         else
            configurationErrors_.push_back( error.text() );
      if ( last ) {
         const std::string why = result ? cannotFollow( *last.configuration, *result.configuration ) : "";
         if ( !why.empty() )
            configurationErrors_.push_back( options_.config + ": " + why );
         if ( !configurationErrors_.empty() )
            result = last;
      }
   }
   if ( !result ) {
      configurationIsWrong_ = true;
      std::string errors;
      for ( const std::string & error : configurationErrors_ )
         errors += ( errors.empty() ? "" : "\n" ) + error;
      return errors;
   }
   configuration_ = *result.configuration;
   if ( configurationErrors_.empty() ) {
      warn( result );
      persistence_->documentIs( acceptedConfiguration, Config::toYaml( configuration_ ) );
   }
   return "";
}

/// Why the state that is kept does not allow one configuration to take the place of another; empty: it does.
std::string
Maintd::cannotFollow( const Config::Configuration & from, const Config::Configuration & to ) const {
   bool allNormal = true;
   for ( const auto & [unit, status] : entities_->unitStatusDir->statusRange() ) {
      if ( status->state() == UnitState::normal )
         continue;
      allNormal = false;
      if ( from.units.count( unit ) && !to.units.count( unit ) )
         return "unit " + unit + " is not normal and cannot be removed";
   }
   if ( from.switchKind != to.switchKind && ( !allNormal || entities_->journal->entrys() != 0 ) )
      return "links of the present switch are held; bring all units back before changing \"switch\"";
   return "";
}

void Maintd::apply( const Config::Configuration & configuration ) {
   configuration_ = configuration;
   stages_->settleTimeIs( configuration.settle.seconds() );
   commands_->configurationIs( configuration.stages );
   views_->hooks.configurationIs( configuration.hooks );
   for ( const auto & [name, unit] : configuration.units )
      stages_->unitIs( name, { unit.enter, unit.exit } );
   membership_->configurationIs( configuration );
   applied_ = true;
   std::vector< std::string > gone;
   for ( const auto & [name, status] : entities_->unitStatusDir->statusRange() )
      if ( !configuration.units.count( name ) )
         gone.push_back( name );
   // A unit that is not normal is refused to go before it comes to this; after a restart one may be left, and stays
   // until it is normal.
   for ( const std::string & name : gone )
      stages_->unitDel( name );
}

Agent::ControlCommands::Reloaded Maintd::reloadConfiguration() {
   if ( world_.notify )
      world_.notify->reloading();
   auto result = readAgain();
   if ( world_.notify )
      world_.notify->reloaded();
   views_->reloaded( result );
   return result;
}

Agent::ControlCommands::Reloaded Maintd::readAgain() {
   Agent::ControlCommands::Reloaded result;
   const Config::Result loaded = Config::load( options_.config );
   if ( !loaded ) {
      configurationErrors_.clear();
      for ( const Config::Error & error : loaded.errors ) {
         result.errors.push_back( { error.file, error.line, error.column, error.message } );
         configurationErrors_.push_back( error.text() );
      }
      result.error = Api::Error{
         Api::ErrorCode::badRequest, "the configuration has errors; the running one is kept",
         options_.config };
      return result;
   }
   const auto refuse = [&]( const std::string & why ) {
      configurationErrors_ = { options_.config + ": " + why };
      result.error = Api::Error{ Api::ErrorCode::conflict, why, options_.config };
      return result;
   };
   const Config::Differences differences = Config::differences( configuration_, *loaded.configuration );
   if ( differences.switchKind || differences.simulated )
      return refuse( "a change of the switch needs a restart; nothing is changed" );
   if ( differences.listen )
      return refuse( "a change of \"listen: web\" needs a restart; nothing is changed" );
   if ( const std::string why = cannotFollow( configuration_, *loaded.configuration ); !why.empty() )
      return refuse( why + "; nothing is changed" );
   configurationErrors_.clear();
   warn( loaded );
   result.changes = Config::describe( configuration_, *loaded.configuration );
   if ( !differences.empty() ) {
      apply( *loaded.configuration );
      serveNames();
      persistence_->documentIs( acceptedConfiguration, Config::toYaml( configuration_ ) );
   }
   return result;
}

} // namespace Apps
