#include "Maintctl/Output.h"

#include "Config/Error.h"
#include "Maintctl/Json.h"
#include "Maintctl/PlanText.h"
#include "Maintctl/Text.h"

#include <cctype>
#include <ostream>

namespace Maintctl {

namespace {

/// Whether the message holds the name, as a word.
bool names( const std::string & message, const std::string & name ) {
   const auto inName = [&]( std::size_t at ) {
      return at < message.size() && std::isalnum( static_cast< unsigned char >( message[at] ) );
   };
   for ( std::size_t at = message.find( name ); at != std::string::npos; at = message.find( name, at + 1 ) )
      if ( ( at == 0 || !inName( at - 1 ) ) && !inName( at + name.size() ) )
         return true;
   return false;
}

} // namespace

void Output::text( std::string_view text ) { data_ << text; }

void Output::document( std::string_view json ) {
   data_ << ( lines_ ? onOneLine( json ) : laidOut( json ) ) << "\n";
}

void Output::message( std::string_view line ) {
   if ( json_ )
      return;
   messages_ << printable( line ) << "\n";
}

void Output::failure( const Failure & failure ) {
   if ( json_ ) {
      document( failureJson( failure ) );
      return;
   }
   for ( const Api::FileError & error : failure.fileErrors ) {
      const Config::Error line{
         error.file, static_cast< unsigned >( error.line ), static_cast< unsigned >( error.column ),
         error.message };
      message( line.text() );
   }
   for ( const Api::Finding & finding : failure.findings )
      message( findingText( finding ) );
   if ( !failure.findings.empty() )
      return message( "maintctl: " + failure.where + ": this takes --force and --reason" );
   // Most messages name by themselves what they are about.
   const bool named = failure.where.empty() || names( failure.message, failure.where );
   const std::string hint = failure.status == ExitStatus::needsForce ? "--force does it" : failure.hint;
   message(
      "maintctl: " + ( named ? "" : failure.where + ": " ) + failure.message +
      ( hint.empty() ? "" : "; " + hint ) );
}

bool Output::flush() {
   data_.flush();
   messages_.flush();
   return data_.good();
}

} // namespace Maintctl
