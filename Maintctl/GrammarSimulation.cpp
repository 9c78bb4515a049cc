#include "Maintctl/Grammar.h"

namespace Maintctl {

Command Grammar::trafficCommand() const {
   if ( to_ )
      return SimulatedTraffic{ name_, *to_, *to_, ramp_ };
   if ( !in_ )
      throw CLI::RequiredError( "--to, or --in and --out" );
   return SimulatedTraffic{ name_, *in_, *out_, ramp_ };
}

void Grammar::simulation() {
   App * simulated = group( app_, "simulated", "Drive the simulated switch: traffic | link | advance" );
   simulated->require_subcommand( 1 );

   App * traffic =
      verb( *simulated, "traffic", "Set the traffic of a port", [this] { return trafficCommand(); } );
   name( traffic, "PORT", "The simulated port" );
   CLI::Option * in = rate( traffic, "--in", in_, "Received" );
   CLI::Option * out = rate( traffic, "--out", out_, "Sent" );
   in->needs( out );
   out->needs( in );
   rate( traffic, "--to", to_, "Both directions" )->excludes( in )->excludes( out );
   duration( traffic, "--ramp", ramp_, "Change evenly over this time" );

   App * link = verb( *simulated, "link", "Set the carrier of a port", [this] {
      return SimulatedLink{ name_, state_ == "up" };
   } );
   name( link, "PORT", "The simulated port" );
   link->add_option( "STATE", state_, "up or down" )
      ->type_name( "" )
      ->required()
      ->check( CLI::IsMember( { "up", "down" } ).description( "" ) );

   App * advance =
      verb( *simulated, "advance", "Let virtual time pass", [this] { return SimulatedAdvance{ by_ }; } );
   duration( advance, "TIME", by_, "How much" )->type_name( "" )->required();
}

} // namespace Maintctl
