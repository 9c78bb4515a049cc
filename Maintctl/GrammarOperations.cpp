#include "Maintctl/Grammar.h"

namespace Maintctl {

void Grammar::operations() {
   using Operation = Operate::Operation;
   const auto operation =
      [this]( const char * verbName, const char * does, Operation which, const char * until ) {
         App * enter = verb( app_, verbName, does, [this, which] {
            if ( force_ && reason_.value_or( "" ).empty() )
               throw CLI::ValidationError( "--force", "needs --reason" );
            return Operate{ which, name_, reason_, wait_ || timeout_, timeout_, force_, session_ };
         } );
         name( enter, "UNIT", "The maintenance unit" );
         enter->add_option( "--reason", reason_, "Why; it is shown with the unit" )->type_name( "TEXT" );
         enter->add_flag( "--wait", wait_, until );
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
         ->check( notEmpty() );
   };
   App * enter = operation(
      "enter", "Put a unit into maintenance", Operation::enter,
      "Wait until it is under maintenance, and show the progress" );
   enter->add_flag( "--force", force_, "Whatever the plan says against it; needs --reason" );
   session( enter );
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

} // namespace Maintctl
