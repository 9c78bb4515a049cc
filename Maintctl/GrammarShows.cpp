#include "Maintctl/Grammar.h"

namespace Maintctl {

void Grammar::watchable( App * verb ) {
   CLI::Option * watch = verb->add_flag(
      "--watch", watch_,
      "Over and over, until Ctrl-C: drawn on a terminal, a line for each change elsewhere" );
   duration( verb, "--interval", interval_, "Between two looks, at least 1s; without it 1s" )->needs( watch );
}

Show Grammar::showCommand( Show::What what ) const {
   // The flag is taken behind each of them, as all that stands before the verb.
   if ( watch_ && what > Show::What::interface )
      throw CLI::ValidationError( "--watch", "is for units and interfaces" );
   if ( interval_ && interval_->seconds() == 0 )
      throw CLI::ValidationError( "--interval", "must be at least 1s" );
   return { what, name_, watch_, interval_.value_or( Config::Duration::fromSeconds( 1 ) ) };
}

void Grammar::shows() {
   using What = Show::What;
   App * show = group(
      app_, "show",
      "Show units | unit UNIT | interfaces [UNIT] | interface NAME | profiles | groups | counters | "
      "agent" );

   watchable( show );
   show->callback( [this, show] {
      if ( !show->get_subcommands().empty() )
         return;
      if ( !watch_ )
         throw CLI::RequiredError( "A subcommand" );
      command_ = [this] { return showCommand( What::units ); };
   } );
   const auto what = [&]( const char * verbName, const char * does, What which ) {
      return verb( *show, verbName, does, [this, which] { return showCommand( which ); } );
   };
   watchable( what( "units", "All units, one line each", What::units ) );
   App * unit = what( "unit", "One unit in full", What::unit );
   name( unit, "UNIT", "The maintenance unit" );
   watchable( unit );
   App * interfaces = what( "interfaces", "The interfaces, one line each", What::interfaces );
   name( interfaces, "UNIT", "Only those of this unit", false );
   watchable( interfaces );
   App * interface = what( "interface", "One interface in full", What::interface );
   name( interface, "NAME", "The interface" );
   watchable( interface );
   what( "profiles", "The profiles in effect", What::profiles );
   what( "groups", "The groups, their interfaces and units", What::groups );
   what( "counters", "The debug counters of the plug-in", What::counters );
   what( "agent", "The health of the agent", What::agent );

   App * explain = verb( app_, "explain", "Say what a unit still waits for, interface by interface", [this] {
      return Explain{ name_ };
   } );
   name( explain, "UNIT", "The maintenance unit" );
}

} // namespace Maintctl
