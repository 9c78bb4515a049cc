#include "Maintctl/ShowFastLog.h"

#include "Maintctl/Json.h"
#include "Maintctl/Text.h"
#include "Platform/FastLog/Reader.h"

#include <filesystem>

namespace Maintctl {

namespace {

std::string jsonOf( const FastLog::Contents & contents ) {
   std::vector< JsonObject > lines;
   for ( const FastLog::Line & line : contents.lines )
      lines.push_back( JsonObject()
                          .add( "sequence", std::to_string( line.sequence ) )
                          .add( "clock-seconds", line.time )
                          .add( "kind", line.kind == FastLog::Kind::profile ? "profile" : "event" )
                          .add( "file", line.file )
                          .add( "line", double( line.line ) )
                          .add( "function", line.function )
                          .add( "text", line.text ) );
   return jsonList( lines );
}

} // namespace

void showFastLog( const ShowFastLog & command, std::string file, Output & output ) try {
   if ( command.run > 0 ) {
      file = FastLog::keptPath( file, command.run );
      std::error_code unknown;
      if ( std::filesystem::status( file, unknown ).type() == std::filesystem::file_type::not_found )
         throw Failure{ ExitStatus::failed, FailureCode::failed, "no log of that run is kept", file, {} };
   }
   const FastLog::Reader reader( file );
   const FastLog::Contents contents = reader.read( command.lastLines.value_or( FastLog::allLines ) );
   if ( output.json() )
      return output.document( jsonOf( contents ) );
   std::string text;
   for ( const FastLog::Line & line : contents.lines )
      text += formatted( line ) + "\n";
   output.text( text );
   for ( const std::string & damage : contents.damage )
      output.message( "maintctl: " + damage );
} catch ( const FastLog::Error & error ) {
   throw Failure{ ExitStatus::failed, FailureCode::failed, error.what(), "", {} };
}

} // namespace Maintctl
