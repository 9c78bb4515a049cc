#pragma once

#include "Api/Error.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

/// Purpose: the body of a request, member by member.
/// Owner: whoever answers the request.
///
/// Its operations throw Api::Error (bad-request) that names the member, for what is missing, of another type or out of
/// range; end() also for a member that none of them has asked for, since it may be a misspelt one that matters. Null
/// counts as missing.
namespace Agent {

class Body {
 public:
   /// No text is an empty object. Throws for a member that is there twice, too.
   explicit Body( const std::string & text );
   ~Body();
   Body( const Body & ) = delete;
   Body & operator=( const Body & ) = delete;

   /// Null if it is missing.
   const nlohmann::json * find( const char * name );
   std::string text( const char * name );
   std::string text( const char * name, const char * missing );
   bool flag( const char * name );
   bool flag( const char * name, bool missing );
   double number( const char * name, double least, double most );
   double number( const char * name, double least, double most, double missing );
   /// Seconds, of a time as in the configuration, `90s`, or a number of them.
   std::optional< double > duration( const char * name );
   /// An object of texts, no more than `most`, each under a name as in the configuration and at most `longest` bytes
   /// without control characters.
   std::map< std::string, std::string > pairs( const char * name, std::size_t most, std::size_t longest );
   /// What a key may be: 1 to 128 characters of ASCII, no blanks; empty: it is missing.
   std::string key( const char * name );

   void end() const;

   /// The same for the same members with the same values in any order, and hardly ever for others. Those of `apart` do not
   /// count. It is kept in stores: it does not change from version to version.
   std::uint64_t fingerprint( const std::set< std::string > & apart ) const;

   static Api::Error bad( const std::string & member, const std::string & what );

 private:
   const nlohmann::json & get( const char * name );

   const std::unique_ptr< nlohmann::json > value_;
   std::set< std::string > known_;
};

} // namespace Agent
