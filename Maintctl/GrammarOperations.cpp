#include "Maintctl/Grammar.h"
#include "Maintctl/SessionAddress.h"

namespace Maintctl {

void Grammar::operations() {
   using Operation = Operate::Operation;
   const auto operation =
      [this]( const char * verbName, const char * does, Operation which, const char * until ) {
         App * enter = verb( app_, verbName, does, [this, which] {
            if ( force_ && reason_.value_or( "" ).empty() )
               throw CLI::ValidationError( "--force", "needs --reason" );
            return Operate{ which,       units_, reason_, wait_ || timeout_, timeout_, force_, session_,
                            requestKey_, with_,  times_ };
         } );
         enter->add_option( "UNIT", units_, "The maintenance unit, or several: one request each" )
            ->type_name( "" )
            ->required()
            ->check( notEmpty() );
         why( enter, "Why; it is shown with the unit" );
         enter->add_flag( "--wait", wait_, until );
         noted( enter, " (of several units each has KEY:UNIT)" );
         duration(
            enter, "--timeout", timeout_,
            "Wait, but no longer than this (0s: look once); the operation itself goes on" );
         return enter;
      };
   const auto session = [this]( App * of ) {
      of->add_option(
           "--session", session_,
           "The address from which you come; without it that of this remote shell, if it is one" )
         ->type_name( "ADDRESS" )
         ->check( CLI::Validator(
            []( std::string & text ) {
               return isSessionAddress( text ) ? "" : "\"" + text + "\" is no address";
            },
            "" ) );
   };
   App * enter = operation(
      "enter", "Put a unit into maintenance", Operation::enter,
      "Wait until it is under maintenance, and show the progress" );
   enter->add_flag( "--force", force_, "Whatever the plan says against it; needs --reason" );
   session( enter );
   times( enter );
   operation(
      "exit", "Bring a unit back; during an enter, cancel that", Operation::exit,
      "Wait until it is back to normal, and show the progress" );

   App * plan = verb(
      app_, "plan", "Show what would come of an enter, and what speaks against it; changes nothing", [this] {
         return Plan{ name_, session_ };
      } );
   name( plan, "UNIT", "The maintenance unit" );
   session( plan );

   App * wait = verb( app_, "wait", "Wait until a unit is under maintenance, or back to normal", [this] {
      return Wait{ name_, for_ == "maintenance" ? Operation::enter : Operation::exit, timeout_ };
   } );
   name( wait, "UNIT", "The maintenance unit" );
   wait->add_option( "--for", for_, "What to wait for" )
      ->type_name( "maintenance|normal" )
      ->required()
      ->check( CLI::IsMember( { "maintenance", "normal" } ).description( "" ) );
   duration( wait, "--timeout", timeout_, "Wait no longer than this; 0s: look once" );
}

void Grammar::why( App * of, const char * help ) {
   of->add_option( "--reason", reason_, help )->type_name( "TEXT" );
}

void Grammar::noted( App * of, const std::string & each ) {
   of->add_option_function< std::vector< std::string > >(
        "--with",
        [this]( const std::vector< std::string > & pairs ) {
           for ( const std::string & pair : pairs ) {
              const std::size_t equals = pair.find( '=' );
              if ( equals == std::string::npos || equals == 0 )
                 throw CLI::ValidationError( "--with", "\"" + pair + "\" is not KEY=VALUE" );
              if ( !with_.emplace( pair.substr( 0, equals ), pair.substr( equals + 1 ) ).second )
                 throw CLI::ValidationError(
                    "--with", "\"" + pair.substr( 0, equals ) + "\" is given twice" );
           }
        },
        "Note this down with it; as often as needed" )
      ->type_name( "KEY=VALUE" )
      ->allow_extra_args( false );
   of->add_option(
        "--request-key", requestKey_,
        "A word of your own; the same request with the same one is done once" + each )
      ->type_name( "KEY" )
      ->check( notEmpty() );
}

} // namespace Maintctl
