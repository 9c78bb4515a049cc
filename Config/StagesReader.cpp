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

StageList Reader::stageList( const Node & node, const StageList & otherwise ) {
   stageListsGood_ = values_.isList( node, "a list of stages" ) && stageListsGood_;
   if ( node.kind != Node::Kind::list )
      return otherwise;
   StageList result;
   std::map< std::string, Place > seen;
   std::vector< std::string > known = builtInStages();
   for ( const auto & [name, stage] : configuration_.stages )
      known.push_back( name );
   for ( const Node & item : node.children ) {
      if ( !values_.isScalar( item, "the name of a stage" ) )
         continue;
      if ( std::find( known.begin(), known.end(), item.text ) != known.end() ) {
         if ( values_.isNew( seen, item.text, item.place ) )
            result.push_back( item.text );
      } else if ( stagesKnown_ )
         values_.unknown( item, "stage", known );
   }
   if ( node.children.empty() )
      values_.error( node.place, inQuotes( node.key ) + " needs at least one stage" );
   stageListsGood_ = stageListsGood_ && result.size() == node.children.size() && !result.empty();
   return result;
}

void Reader::checkWayBack( const StageList & enter, const StageList & exit, Place place ) {
   const auto drainwatchIn = []( const StageList & list ) {
      return std::find( list.begin(), list.end(), drainwatchStage ) != list.end();
   };
   if ( drainwatchIn( enter ) && !drainwatchIn( exit ) && stageListsGood_ )
      values_.error(
         place,
         "stage \"drainwatch\" is in the list \"enter\" and not in the list \"exit\"; nothing else lets go "
         "of the links that it shuts" );
}

} // namespace Config
