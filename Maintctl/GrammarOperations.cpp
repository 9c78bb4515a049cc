#include "Maintctl/Grammar.h"

namespace Maintctl {

void Grammar::operations() {
   using Operation = Operate::Operation;
   const auto operation =
      [this]( const char * verbName, const char * does, Operation which, const char * until ) {
         App * enter = verb( app_, verbName, does, [this, which] {
            return Operate{ which, name_, reason_, wait_ || timeout_, timeout_ };
         } );
         name( enter, "UNIT", "The maintenance unit" );
         enter->add_option( "--reason", reason_, "Why; it is shown with the unit" )->type_name( "TEXT" );
         enter->add_flag( "--wait", wait_, until );
         duration(
            enter, "--timeout", timeout_,
            "Wait, but no longer than this (0s: look once); the operation itself goes on" );
      };
   operation(
      "enter", "Put a unit into maintenance", Operation::enter,
      "Wait until it is under maintenance, and show the progress" );
   operation(
      "exit", "Bring a unit back; during an enter, cancel that", Operation::exit,
      "Wait until it is back to normal, and show the progress" );

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
