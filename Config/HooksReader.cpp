#include "Config/InQuotes.h"
#include "Config/Reader.h"

#include <algorithm>

namespace Config {

void Reader::hooks( const Node & node ) {
   if ( !values_.isMap( node, "a map of hooks" ) )
      return;
   if ( node.children.size() > mostHooks )
      values_.error(
         node.keyPlace, "there are " + std::to_string( node.children.size() ) + " hooks; there may be " +
                           std::to_string( mostHooks ) + " at most" );
   for ( const Node & child : node.children ) {
      values_.isValidName( child );
      hook( child, configuration_.hooks[child.key] );
   }
}

void Reader::hook( const Node & node, Hook & hook ) {
   if ( !values_.isRecord( node, "a hook", { "at", "units", "command", "url", "time-limit" } ) )
      return;
   const std::string what = "hook " + inQuotes( node.key );
   if ( const Node * const at = values_.required( node, "at", node.keyPlace, what ) )
      hook.at = moments( *at );
   if ( const Node * const units = Values::find( node, "units" ) )
      hook.units = hookUnits( *units );
   const Node * const command = Values::find( node, "command" );
   const Node * const url = Values::find( node, "url" );
   if ( command )
      hook.command =
         command->kind == Node::Kind::list ? wordsOfCommand( *command ) : this->command( *command );
   if ( url && values_.isScalar( *url, "a URL" ) ) {
      Parsed< std::string > parsed = parseUrl( url->text );
      if ( !parsed )
         values_.error( url->place, std::move( parsed.error ) );
      hook.url = parsed.value.value_or( "" );
   }
   if ( command && url )
      values_.error( node.keyPlace, what + " has both \"command\" and \"url\"; write two hooks" );
   else if ( !command && !url && diagnostics_.complete() )
      values_.error( node.keyPlace, what + " needs \"command\" or \"url\"" );
   if ( const Node * const limit = Values::find( node, "time-limit" ) )
      if ( const auto value = values_.duration( *limit ) ) {
         if ( *value == Duration() || *value > Hook::mostTimeLimit )
            values_.error(
               limit->place, inQuotes( limit->text ) + " is out of range; a hook gets 1s to " +
                                Hook::mostTimeLimit.text() );
         hook.timeLimit = *value;
      }
}

std::set< Moment > Reader::moments( const Node & node ) {
   std::set< Moment > result;
   if ( !values_.isList( node, "a list of moments" ) )
      return result;
   const std::vector< Moment > all = allMoments();
   std::vector< std::string > names;
   for ( const Moment moment : all )
      names.push_back( text( moment ) );
   std::map< std::string, Place > seen;
   for ( const Node & item : node.children ) {
      if ( !values_.isScalar( item, "a moment" ) )
         continue;
      const auto known = std::find( names.begin(), names.end(), item.text );
      if ( known == names.end() )
         values_.unknownWord( item, "moment", names );
      else if ( values_.isNew( seen, item.text, item.place ) )
         result.insert( all[static_cast< std::size_t >( known - names.begin() )] );
   }
   if ( node.children.empty() )
      values_.error( node.place, "\"at\" needs at least one moment" );
   return result;
}

std::set< std::string > Reader::hookUnits( const Node & node ) {
   std::set< std::string > result;
   if ( !values_.isList( node, "a list of units" ) )
      return result;
   std::map< std::string, Place > seen;
   for ( const Node & item : node.children ) {
      const std::optional< std::string > name =
         values_.reference( item, "unit", configuration_.units, unitsKnown_ );
      if ( name && values_.isNew( seen, *name, item.place ) )
         result.insert( *name );
   }
   if ( node.children.empty() )
      values_.error( node.place, "\"units\" needs at least one unit; leave the key out for all of them" );
   return result;
}

/// A command as its words, each as it is.
Command Reader::wordsOfCommand( const Node & node ) {
   std::vector< std::string > words;
   for ( const Node & item : node.children ) {
      if ( !values_.isScalar( item, "a word of a command" ) )
         return {};
      words.push_back( item.text );
   }
   Parsed< Command > result = Command::of( std::move( words ) );
   if ( !result )
      values_.error( node.place, std::move( result.error ) );
   return result.value.value_or( Command() );
}

} // namespace Config
