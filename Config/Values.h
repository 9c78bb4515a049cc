#pragma once

#include "Config/Diagnostics.h"
#include "Config/Duration.h"
#include "Config/Rate.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// Purpose: takes values of the tree for what they have to be, and reports those that are something else.
/// Owner: the reader of a configuration.
///
/// An operation that gives nothing has reported why, unless that was done before (a refused node).
class Values {
 public:
   explicit Values( Diagnostics & diagnostics ) : diagnostics_( diagnostics ) {}

   void error( Place place, std::string message ) { diagnostics_.error( place, std::move( message ) ); }

   /// \param expected  with its article, for messages: "a map of groups"
   bool isMap( const Node & node, std::string_view expected );
   bool isList( const Node & node, std::string_view expected );
   bool isScalar( const Node & node, std::string_view expected );

   /// Whether node is a map, reporting each of its keys that is none of `known`.
   /// \param what  for messages: "a profile", "the profile"
   bool isRecord( const Node & node, std::string_view what, const std::vector< std::string > & known );
   /// The value of a key of a map; null if there is none. Nothing is reported.
   static const Node * find( const Node & map, std::string_view key );
   /// The same, and reports it missing, if the files were read to their ends.
   /// \param place  of what needs it
   const Node * required( const Node & map, std::string_view key, Place place, const std::string & what );

   std::optional< bool > boolean( const Node & node );
   std::optional< Rate > rate( const Node & node );
   std::optional< Duration > duration( const Node & node );
   /// One of a few words.
   std::optional< std::string > choice( const Node & node, const std::vector< std::string > & words );

   /// A name that is defined elsewhere. One that is not is reported if the files were read to their ends.
   /// \param what   "group"
   /// \param known  whether the definitions could be read; if not, names that are not defined are not reported
   template < typename T >
   std::optional< std::string > reference(
      const Node & node, const std::string & what, const std::map< std::string, T > & defined, bool known ) {
      if ( !isScalar( node, "the name of a " + what ) )
         return std::nullopt;
      if ( defined.count( node.text ) )
         return node.text;
      if ( known ) {
         std::vector< std::string > names;
         for ( const auto & entry : defined )
            names.push_back( entry.first );
         unknown( node, what, names );
      }
      return std::nullopt;
   }
   void unknown( const Node & node, const std::string & what, const std::vector< std::string > & names );

   /// The same of what is one of a few words, whatever else is defined.
   void unknownWord( const Node & node, const std::string & what, const std::vector< std::string > & words );

   bool isValidName( const Node & node ); ///< of the key of node
   bool isInterfaceName( const std::string & text, Place place );

   /// Notes that something is at a place; reports it if it was there before.
   /// \return whether it is new
   bool isNew( std::map< std::string, Place > & seen, const std::string & text, Place place );

 private:
   bool is( const Node & node, Node::Kind kind, std::string_view expected );
   std::string suggestion( const std::string & text, const std::vector< std::string > & candidates );

   Diagnostics & diagnostics_;
   unsigned suggestions_ = 0; ///< looked for so far
};

} // namespace Config
