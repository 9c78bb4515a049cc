#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: reads answers of the agent; knows how to say what is wrong with them. Used by the readers of shapes only.
namespace Api {

/// One JSON object, which outlives it. A key that is missing counts as null. Throws Error (internal) for what is of
/// another type than is asked for.
class Reader {
 public:
   using json = nlohmann::json;
   explicit Reader( const json & object );

   /// Throws Error (internal) if the text is no JSON.
   static json parsed( std::string_view text );

   /// All of it, as text on one line.
   std::string all() const;
   /// Null if it is missing or null.
   const json * find( const char * key ) const;
   std::optional< std::string > maybeText( const char * key ) const;
   std::string text( const char * key ) const { return maybeText( key ).value_or( "" ); }
   /// What nothing can be said without.
   std::string name( const char * key ) const;
   std::optional< double > maybeNumber( const char * key ) const;
   std::optional< std::uint64_t > maybeCounter( const char * key ) const;
   std::uint64_t counter( const char * key ) const { return maybeCounter( key ).value_or( 0 ); }
   bool flag( const char * key ) const;
   std::optional< double > time( const char * key ) const;
   std::vector< std::string > texts( const char * key ) const;
   /// An object of texts; none if it is missing.
   std::map< std::string, std::string > pairs( const char * key ) const;
   /// Numbers, nothing where they are null.
   std::vector< std::optional< double > > numbers( const char * key ) const;
   /// An object below; an empty one if it is missing.
   Reader below( const char * key ) const;

   template < class Shape >
   std::vector< Shape > list( const char * key, Shape ( *read )( const Reader & ) ) const {
      const json * value = find( key );
      return value ? listOf( *value, read ) : std::vector< Shape >();
   }
   template < class Shape >
   static std::vector< Shape > listOf( const json & value, Shape ( *read )( const Reader & ) ) {
      std::vector< Shape > result;
      forEach( value, [&]( const Reader & element ) { result.push_back( read( element ) ); } );
      return result;
   }

 private:
   static void forEach( const json & list, const std::function< void( const Reader & ) > & action );

   const json & object_;
};

} // namespace Api
