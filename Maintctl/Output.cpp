#include "Maintctl/Output.h"

#include "Config/Error.h"
#include "Maintctl/Json.h"
#include "Maintctl/Text.h"

#include <ostream>

namespace Maintctl {

namespace {

constexpr char clearLine[] = "\r\033[K";

} // namespace

void Output::text( std::string_view text ) {
   clearProgress();
   data_ << text;
}

void Output::document( std::string_view json ) { data_ << laidOut( json ) << "\n"; }

void Output::message( std::string_view line ) {
   if ( json_ )
      return;
   clearProgress();
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
   // Most messages name by themselves what they are about.
   const bool named = failure.where.empty() || failure.message.find( failure.where ) != std::string::npos;
   message( "maintctl: " + ( named ? "" : failure.where + ": " ) + failure.message );
}

void Output::progress( std::string_view line ) {
   if ( !drawsProgress() )
      return message( line );
   // A line as wide as the terminal would wrap, and could not be drawn over.
   messages_ << clearLine << cut( printable( line ), terminal_.width ? terminal_.width - 1 : 0 )
             << std::flush;
   drawn_ = true;
}

bool Output::finish() {
   clearProgress();
   data_.flush();
   messages_.flush();
   return data_.good();
}

void Output::clearProgress() {
   if ( drawn_ )
      messages_ << clearLine << std::flush;
   drawn_ = false;
}

} // namespace Maintctl
