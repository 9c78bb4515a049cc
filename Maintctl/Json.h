#pragma once

#include "Maintctl/Failure.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// Purpose: makes JSON text. What is not UTF-8 is replaced, so that it is always valid.
namespace Maintctl {

/// An object in the order of its fields.
class JsonObject {
 public:
   using Value = std::variant<
      std::nullptr_t, bool, double, std::string, std::vector< std::string >,
      std::map< std::string, std::string > >;
   JsonObject & add( std::string key, Value value ) {
      fields_.emplace_back( std::move( key ), std::move( value ) );
      return *this;
   }
   std::string text() const;

 private:
   std::vector< std::pair< std::string, Value > > fields_;
};

/// The list of objects.
std::string jsonList( const std::vector< JsonObject > & objects );
/// `{"error":{"code":…,"message":…,"where":…}}`, and `errors` of a file if there are any.
std::string failureJson( const Failure & failure );
/// `{"file":…,"errors":[],"warnings":…}` of a file that is accepted.
std::string validJson( const std::string & file, const std::vector< Api::FileError > & warnings );
/// The same document, indented. Throws Api::Error (internal) if it is no JSON.
std::string laidOut( std::string_view json );
/// The same document without line ends and blanks.
std::string onOneLine( std::string_view json );

} // namespace Maintctl
