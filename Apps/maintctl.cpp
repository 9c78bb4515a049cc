#include "Maintctl/CommandLine.h"
#include "Maintctl/CurlClient.h"
#include "Maintctl/Json.h"
#include "Maintctl/RealDisplay.h"
#include "Maintctl/RealPace.h"
#include "Maintctl/Run.h"
#include "Maintctl/SessionAddress.h"

#include <cstdlib>
#include <iostream>

#include <unistd.h>

namespace {

using namespace Maintctl;

Display::Abilities abilitiesOfDescriptor( int descriptor, bool wanted ) {
   return abilitiesOf( isatty( descriptor ), wanted, TerminalEnvironment::ofProcess() );
}

/// Progress is drawn only where colours are allowed too.
Display::Abilities forProgress( Display::Abilities abilities ) {
   abilities.draws = abilities.draws && abilities.colours;
   return abilities;
}

/// Only who reads it at a terminal can do something about a note.
OperatorSession sessionOfThis() {
   OperatorSession session = operatorSession( "/proc", getpid() );
   if ( !isatty( STDERR_FILENO ) )
      session.note.clear();
   return session;
}

ExitStatus perform( const Parsed & parsed ) {
   if ( const auto * information = std::get_if< Information >( &parsed ) ) {
      Output output( std::cout, std::cerr, information->json );
      if ( information->json )
         output.document( JsonObject().add( information->key, information->value ).text() );
      else
         output.text( information->text );
      return output.flush() ? ExitStatus::done : ExitStatus::failed;
   }
   if ( const auto * error = std::get_if< UsageError >( &parsed ) ) {
      Output output( std::cout, std::cerr, error->json );
      output.failure( error->failure );
      output.flush();
      return ExitStatus::usage;
   }
   const auto & invocation = std::get< Invocation >( parsed );
   Output output( std::cout, std::cerr, invocation.json );
   RealDisplay data( STDOUT_FILENO, abilitiesOfDescriptor( STDOUT_FILENO, invocation.progress ) );
   RealDisplay messages(
      STDERR_FILENO, forProgress( abilitiesOfDescriptor( STDERR_FILENO, invocation.progress ) ) );
   RealPace pace;
   CurlClient client( invocation.socket, RealPace::interrupted );
   Config::SystemFiles files;
   World world{ client, pace, files, output, data, messages, sessionOfThis() };
   const ExitStatus status = run( invocation, world );
   if ( output.flush() || status != ExitStatus::done )
      return status;
   output.failure( { ExitStatus::failed, FailureCode::failed, "the output could not be written", "", {} } );
   return ExitStatus::failed;
}

} // namespace

int main( int argc, char ** argv ) {
   return static_cast< int >( perform( parse( { argv + 1, argv + argc }, MAINT_VERSION ) ) );
}
