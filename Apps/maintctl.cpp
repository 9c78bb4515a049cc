#include "Maintctl/CommandLine.h"
#include "Maintctl/CurlClient.h"
#include "Maintctl/Json.h"
#include "Maintctl/RealPace.h"
#include "Maintctl/Run.h"

#include <sys/ioctl.h>

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace {

using namespace Maintctl;

std::string_view environment( const char * name ) {
   const char * value = std::getenv( name );
   return value ? value : "";
}

Terminal messagesTerminal( bool wanted ) {
   Terminal terminal;
   terminal.live = wanted && isatty( STDERR_FILENO ) && environment( "NO_COLOR" ).empty() &&
                   environment( "TERM" ) != "dumb";
   winsize size{};
   if ( terminal.live && ioctl( STDERR_FILENO, TIOCGWINSZ, &size ) == 0 && size.ws_col > 0 )
      terminal.width = size.ws_col;
   return terminal;
}

ExitStatus perform( const Parsed & parsed ) {
   if ( const auto * information = std::get_if< Information >( &parsed ) ) {
      Output output( std::cout, std::cerr, {}, information->json );
      if ( information->json )
         output.document( JsonObject().add( information->key, information->value ).text() );
      else
         output.text( information->text );
      return output.finish() ? ExitStatus::done : ExitStatus::failed;
   }
   if ( const auto * error = std::get_if< UsageError >( &parsed ) ) {
      Output output( std::cout, std::cerr, {}, error->json );
      output.failure( error->failure );
      output.finish();
      return ExitStatus::usage;
   }
   const auto & invocation = std::get< Invocation >( parsed );
   Output output( std::cout, std::cerr, messagesTerminal( invocation.progress ), invocation.json );
   RealPace pace;
   CurlClient client( invocation.socket, RealPace::interrupted );
   Config::SystemFiles files;
   World world{ client, pace, files, output };
   const ExitStatus status = run( invocation, world );
   if ( output.finish() || status != ExitStatus::done )
      return status;
   output.failure( { ExitStatus::failed, FailureCode::failed, "the output could not be written", "", {} } );
   return ExitStatus::failed;
}

} // namespace

int main( int argc, char ** argv ) {
   return static_cast< int >( perform( parse( { argv + 1, argv + argc }, MAINT_VERSION ) ) );
}
