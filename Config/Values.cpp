#include "Config/Values.h"

#include "Config/InQuotes.h"
#include "Config/Names.h"
#include "Config/Suggestion.h"

#include <algorithm>

namespace Config {

namespace {

/// A file full of unknown names must not hold up anybody.
constexpr unsigned maxSuggestions = 200;

const char * text( Node::Kind kind ) {
   switch ( kind ) {
   case Node::Kind::list:
      return "a list";
   case Node::Kind::map:
      return "a map";
   default:
      return "a single value";
   }
}

std::string joined( const std::vector< std::string > & words, const char * last ) {
   std::string result;
   for ( std::size_t i = 0; i < words.size(); ++i )
      result.append( i == 0 ? "" : i + 1 == words.size() ? last : ", " ).append( words[i] );
   return result;
}

} // namespace

bool Values::is( const Node & node, Node::Kind kind, std::string_view expected ) {
   if ( node.kind == kind )
      return true;
   const bool isEntry = !node.key.empty();
   if ( node.kind == Node::Kind::none ) {
      const std::string subject = isEntry ? inQuotes( node.key ) + " has no value" : "no value here";
      const char * const hint = kind == Node::Kind::map    ? " ({} is an empty one)"
                                : kind == Node::Kind::list ? " ([] is an empty one)"
                                                           : "";
      error( isEntry ? node.keyPlace : node.place, subject + "; expected " + std::string( expected ) + hint );
   } else if ( node.kind != Node::Kind::refused ) {
      const std::string subject = isEntry ? inQuotes( node.key ) + " must be " : "expected ";
      error( node.place, subject + std::string( expected ) + ", not " + text( node.kind ) );
   }
   return false;
}

std::string Values::suggestion( const std::string & text, const std::vector< std::string > & candidates ) {
   return ++suggestions_ <= maxSuggestions ? didYouMean( text, candidates ) : std::string();
}

bool Values::isMap( const Node & node, std::string_view expected ) {
   return is( node, Node::Kind::map, expected );
}
bool Values::isList( const Node & node, std::string_view expected ) {
   return is( node, Node::Kind::list, expected );
}
bool Values::isScalar( const Node & node, std::string_view expected ) {
   return is( node, Node::Kind::scalar, expected );
}

bool Values::isRecord( const Node & node, std::string_view what, const std::vector< std::string > & known ) {
   if ( !isMap( node, node.key.empty() ? what : "a map" ) )
      return false;
   for ( const Node & child : node.children ) {
      if ( std::find( known.begin(), known.end(), child.key ) != known.end() )
         continue;
      const std::string meant = suggestion( child.key, known );
      error(
         child.keyPlace, "unknown key " + inQuotes( child.key ) + " in " + std::string( what ) +
                            ( meant.empty() ? "; known are " + joined( known, " and " ) : meant ) );
   }
   return true;
}

const Node * Values::find( const Node & map, std::string_view key ) {
   for ( const Node & child : map.children )
      if ( child.key == key )
         return &child;
   return nullptr;
}

const Node *
Values::required( const Node & map, std::string_view key, Place place, const std::string & what ) {
   const Node * const result = find( map, key );
   if ( !result && diagnostics_.complete() )
      error( place, what + " needs " + inQuotes( key ) );
   return result;
}

std::optional< bool > Values::boolean( const Node & node ) {
   if ( !isScalar( node, "true or false" ) )
      return std::nullopt;
   if ( node.plain && ( node.text == "true" || node.text == "false" ) )
      return node.text == "true";
   error(
      node.place, inQuotes( node.key ) + " must be true or false, not " + inQuotes( node.text ) +
                     ( node.plain ? "" : " (in quotes it is text)" ) );
   return std::nullopt;
}

std::optional< Rate > Values::rate( const Node & node ) {
   if ( !isScalar( node, "a rate" ) )
      return std::nullopt;
   Parsed< Rate > result = Rate::parse( node.text );
   if ( !result )
      error( node.place, std::move( result.error ) );
   return result.value;
}

std::optional< Duration > Values::duration( const Node & node ) {
   if ( !isScalar( node, "a time" ) )
      return std::nullopt;
   Parsed< Duration > result = Duration::parse( node.text );
   if ( !result )
      error( node.place, std::move( result.error ) );
   return result.value;
}

std::optional< std::string > Values::choice( const Node & node, const std::vector< std::string > & words ) {
   if ( !isScalar( node, joined( words, " or " ) ) )
      return std::nullopt;
   if ( std::find( words.begin(), words.end(), node.text ) != words.end() )
      return node.text;
   error(
      node.place, inQuotes( node.key ) + " must be " + joined( words, " or " ) + ", not " +
                     inQuotes( node.text ) + suggestion( node.text, words ) );
   return std::nullopt;
}

void Values::unknown(
   const Node & node, const std::string & what, const std::vector< std::string > & names ) {
   if ( diagnostics_.complete() )
      error( node.place, "unknown " + what + " " + inQuotes( node.text ) + suggestion( node.text, names ) );
}

void Values::unknownWord(
   const Node & node, const std::string & what, const std::vector< std::string > & words ) {
   const std::string meant = suggestion( node.text, words );
   error(
      node.place, "unknown " + what + " " + inQuotes( node.text ) +
                     ( meant.empty() ? "; known are " + joined( words, " and " ) : meant ) );
}

bool Values::isValidName( const Node & node ) {
   if ( isName( node.key ) )
      return true;
   error(
      node.keyPlace,
      inQuotes( node.key ) +
         " is not a valid name; a name has 1 to 63 letters, digits, \".\", \"_\" or \"-\" and begins "
         "with a letter or digit" );
   return false;
}

bool Values::isInterfaceName( const std::string & text, Place place ) {
   const std::string reason = interfaceNameError( text );
   if ( reason.empty() )
      return true;
   error( place, inQuotes( text ) + " is not an interface name: it " + reason );
   return false;
}

bool Values::isNew( std::map< std::string, Place > & seen, const std::string & text, Place place ) {
   const auto [first, added] = seen.emplace( text, place );
   if ( !added )
      error(
         place,
         inQuotes( text ) + " is listed twice; it is already at " + diagnostics_.text( first->second ) );
   return added;
}

} // namespace Config
