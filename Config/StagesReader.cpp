#include "Config/InQuotes.h"
#include "Config/Reader.h"

#include <algorithm>

namespace Config {

void Reader::stages( const Node & node ) {
   stagesKnown_ = values_.isMap( node, "a map of stages" );
   if ( !stagesKnown_ )
      return;
   const std::vector< std::string > taken = builtInStages();
   for ( const Node & child : node.children ) {
      if ( std::find( taken.begin(), taken.end(), child.key ) != taken.end() ) {
         values_.error( child.keyPlace, inQuotes( child.key ) + " is a stage already; choose another name" );
         continue;
      }
      values_.isValidName( child );
      stage( child, configuration_.stages[child.key] );
   }
}

void Reader::stage( const Node & node, CommandStage & stage ) {
   if ( !values_.isRecord( node, "a stage", { "enter", "exit", "timeout", "on-failure", "steers" } ) )
      return;
   const Node * const enter = Values::find( node, "enter" );
   const Node * const exit = Values::find( node, "exit" );
   if ( enter )
      stage.enter = command( *enter );
   if ( exit )
      stage.exit = command( *exit );
   if ( !enter && !exit && diagnostics_.complete() )
      values_.error(
         node.keyPlace,
         "stage " + inQuotes( node.key ) + " needs a command for \"enter\", \"exit\" or both" );
   if ( const Node * const timeout = Values::find( node, "timeout" ) )
      if ( const auto value = values_.duration( *timeout ) ) {
         if ( *value == Duration() )
            values_.error(
               timeout->place, inQuotes( timeout->text ) + " is out of range; a stage gets at least 1s" );
         stage.timeout = *value;
      }
   if ( const Node * const onFailure = Values::find( node, "on-failure" ) )
      if ( values_.choice( *onFailure, { "abort", "continue" } ) == "continue" )
         stage.onFailure = OnFailure::continueOn;
   if ( const Node * const steers = Values::find( node, "steers" ) ) {
      stage.steers = values_.boolean( *steers ).value_or( false );
      if ( stage.steers && !enter && diagnostics_.complete() )
         values_.error(
            steers->place,
            "stage " + inQuotes( node.key ) + " has no command for \"enter\" that could steer" );
   }
}

Command Reader::command( const Node & node ) {
   if ( !values_.isScalar( node, "a command" ) )
      return {};
   Parsed< Command > result = Command::parse( node.text );
   if ( !result )
      values_.error( node.place, std::move( result.error ) );
   return result.value.value_or( Command() );
}

Reader::ReadStages Reader::stageList( const Node & node, const ReadStages & otherwise ) {
   if ( !values_.isList( node, "a list of stages" ) )
      return { otherwise.list, false };
   ReadStages result;
   result.list.clear();
   std::map< std::string, Place > seen;
   std::vector< std::string > known = builtInStages();
   for ( const auto & [name, stage] : configuration_.stages )
      known.push_back( name );
   for ( const Node & item : node.children ) {
      if ( !values_.isScalar( item, "the name of a stage" ) )
         continue;
      if ( std::find( known.begin(), known.end(), item.text ) != known.end() ) {
         if ( values_.isNew( seen, item.text, item.place ) )
            result.list.push_back( item.text );
      } else if ( stagesKnown_ )
         values_.unknown( item, "stage", known );
   }
   if ( node.children.empty() )
      values_.error( node.place, inQuotes( node.key ) + " needs at least one stage" );
   result.good = result.list.size() == node.children.size() && !result.list.empty();
   return result;
}

void Reader::checkWayBack( const ReadStages & enter, const ReadStages & exit, Place place ) {
   if ( !enter.good || !exit.good )
      return;
   for ( const std::string & name : enter.list ) {
      if ( std::find( exit.list.begin(), exit.list.end(), name ) != exit.list.end() )
         continue;
      const std::string missing =
         "stage " + inQuotes( name ) + " is in the list \"enter\" and not in the list \"exit\"; ";
      const auto stage = configuration_.stages.find( name );
      if ( name == drainwatchStage )
         values_.error( place, missing + "nothing else lets go of the links that it shuts" );
      else if ( stage != configuration_.stages.end() && !stage->second.exit.empty() )
         diagnostics_.laterError(
            place, missing + "its command for \"exit\" would not undo what it has done" );
   }
}

} // namespace Config
