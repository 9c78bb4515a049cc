#pragma once

#include "DataPlane/Linux/NamespaceTest.h"

/// Purpose: routes of the real kernel, over links with addresses, as a switch tells of them.
namespace DataPlane::Linux {

class RoutesInNamespace : public InNamespace {
 protected:
   /// Commands that make a pair which is up, et1 and p1 for "1". What is sent to 10.0.1.2 or to 2001:db8:1::2 leaves over
   /// et1.
   static Vel::String addressedPair( const char * number ) {
      const Vel::String name = Vel::text( "et", number ), other = Vel::text( "p", number );
      return Vel::text(
         "link add ", name, " type veth peer name ", other, "\n", setUp( name ), setUp( other ),
         "address add 10.0.", number, ".1/24 dev ", name, "\naddress add 2001:db8:", number,
         "::1/64 nodad dev ", name, "\n" );
   }
   /// The same for a link, without an address that the kernel makes by itself and tells of seconds later.
   static Vel::String setUp( const Vel::String & link ) {
      return Vel::text( "link set ", link, " addrgenmode none\nlink set ", link, " up\n" );
   }

   RouteAnswer
   asked( const Vel::String & address = "", const Vel::String & source = "", const Vel::String & link = "" ) {
      std::optional< RouteAnswer > result;
      made->routesAsk( { address, source, link }, [&]( const RouteAnswer & answer ) { result = answer; } );
      until( [&] { return result.has_value(); } );
      return result.value_or( RouteAnswer{ std::make_shared< RouteTable >(), std::nullopt } );
   }
   /// The ways to a destination of which it is the first example, as text; "none" if there is no such class.
   static Vel::String waysTo( const RouteAnswer & answer, const Vel::String & destination ) {
      for ( const RouteClass & routes : answer.table->classes )
         for ( const std::string & example : routes.examples )
            if ( example == destination )
               return text( routes.choices );
      return "none";
   }
   static Vel::String text( const Choices & choices ) {
      Vel::String result;
      for ( const EqualHops & hops : choices ) {
         result += result.empty() ? "" : " else";
         for ( const NextHop & hop : hops )
            result += Vel::text( result.empty() ? "" : " ", hop.link, "*", hop.weight );
      }
      return result;
   }
   /// Without those of less specific routes.
   static Vel::String textOfOwn( const AddressWay & way ) {
      Choices own = way.choices;
      if ( !way.lessSpecific.empty() )
         own.resize( way.lessSpecific.front().first );
      return text( own );
   }
   static const RoutedLink * link( const RouteAnswer & answer, const Vel::String & name ) {
      for ( const RoutedLink & each : answer.table->links )
         if ( each.name == name )
            return &each;
      return nullptr;
   }
};

/// Over et1 and et2, of several kinds.
class LinuxRoutes : public RoutesInNamespace {
 protected:
   void SetUp() override {
      InNamespace::SetUp();
      if ( IsSkipped() )
         return;
      burst(
         addressedPair( "1" ) + addressedPair( "2" ) +
         "link set lo up\n"
         "route add default via 10.0.1.2\n"
         "route add 10.1.0.0/16 nexthop via 10.0.1.2 weight 3 nexthop via 10.0.2.2\n"
         "route add 10.2.0.0/16 via 10.0.1.2 metric 10\n"
         "route add 10.2.0.0/16 via 10.0.2.2 metric 20\n"
         "route add blackhole 10.3.0.0/16\n"
         "route add 10.4.0.0/16 via 10.0.2.2 table 100\n"
         "route add 2001:db8:100::/48 nexthop via 2001:db8:1::2 nexthop via 2001:db8:2::2\n"
         "route add unreachable 2001:db8:200::/48\n" );
      started();
   }
};

} // namespace DataPlane::Linux
