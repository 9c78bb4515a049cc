// VLAN devices above a link that is taken down and up, on a real kernel that has them.

#include "DataPlane/Linux/RestoreInNamespaceTest.h"

namespace DataPlane::Linux {
namespace {

class LinuxSubIntf : public LinuxRestore {
 protected:
   static void vlan( const Vel::String & name, const Vel::String & lower, int id, const char * more = "" ) {
      ip( Vel::text( "link add link ", lower, " name ", name, " type vlan id ", id, " ", more ) );
   }
   /// The switch hears of what has been done by now.
   void heard() {
      until( [turn = 0]() mutable { return ++turn > 3; } );
   }
   Vel::String snapshot( std::string_view name ) {
      heard();
      return LinuxRestore::snapshot( name );
   }
   static bool adminUp( const Vel::String & name ) {
      return !ipSays( "-o link show up dev " + name ).empty();
   }
   static bool has( const Vel::String & command, const char * text ) {
      return ipSays( command ).find( text ) != Vel::String::npos;
   }
};

TEST_F( LinuxSubIntf, comesBackWithAllThatItHad ) {
   vlan( "et1.100", "et1", 100 );
   vlan( "et1.100.5", "et1.100", 5 );
   up( "et1.100" );
   up( "et1.100.5" );
   comesBack(
      { "address add 10.9.0.1/24 dev et1.100", "address add 2001:db8:9::1/64 dev et1.100 nodad",
        "address add 2001:db8:5::1/64 dev et1.100.5 nodad", "route add 10.77.0.0/16 via 10.9.0.2",
        "-6 route add 2001:db8:77::/48 via 2001:db8:9::2", "-6 route add 2001:db8:55::/48 via 2001:db8:5::2",
        "route add 10.78.0.0/16 dev et1.100.5 scope link", "address add 2001:db8:1::1/64 dev et1 nodad",
        "-6 route add 2001:db8:11::/48 via 2001:db8:1::2",
        "neighbour add 10.9.0.2 lladdr 02:00:00:00:00:01 nud permanent dev et1.100",
        "-6 neighbour add 2001:db8:5::2 lladdr 02:00:00:00:00:01 nud permanent dev et1.100.5",
        "neighbour add proxy 10.9.0.9 dev et1.100",
        "route add 10.79.0.0/16 nexthop via 10.9.0.2 nexthop dev et1.100.5" } );
   EXPECT_TRUE( adminUp( "et1.100" ) && adminUp( "et1.100.5" ) );
   EXPECT_TRUE( has( "-6 address show dev et1.100.5", "2001:db8:5::1/64" ) );
   EXPECT_TRUE( has( "route show 10.77.0.0/16", "via 10.9.0.2" ) );
   EXPECT_TRUE( has( "neighbour show dev et1.100", "02:00:00:00:00:01 PERMANENT" ) );
}

TEST_F( LinuxSubIntf, thatWasDownIsDownAgainWithItsAddresses ) {
   vlan( "et1.100", "et1", 100 );
   vlan( "et1.200", "et1", 200 );
   vlan( "et1.200.5", "et1.200", 5 );
   up( "et1.100" );
   comesBack(
      { "address add 2001:db8:9::1/64 dev et1.100 nodad", "address add 2001:db8:2::1/64 dev et1.200 nodad",
        "address add 10.2.0.1/24 dev et1.200",
        "neighbour add 10.2.0.2 lladdr 02:00:00:00:00:01 nud permanent dev et1.200" } );
   EXPECT_TRUE( adminUp( "et1.100" ) );
   EXPECT_FALSE( adminUp( "et1.200" ) || adminUp( "et1.200.5" ) );
   EXPECT_TRUE( has( "-6 address show dev et1.200", "2001:db8:2::1/64" ) );
}

TEST_F( LinuxSubIntf, thatIsBoundLooselyStays ) {
   vlan( "et1.100", "et1", 100, "loose_binding on" );
   vlan( "et1.200", "et1", 200, "loose_binding on" );
   up( "et1.100" );
   ip( "address add 2001:db8:9::1/64 dev et1.100 nodad" );
   EXPECT_EQ( "", snapshot( "et1" ) );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   EXPECT_TRUE( adminUp( "et1.100" ) );
   EXPECT_TRUE( set( "et1", true ).link.ok() );
   EXPECT_FALSE( adminUp( "et1.200" ) );
   EXPECT_TRUE( has( "-6 address show dev et1.100", "2001:db8:9::1/64" ) );
}

TEST_F( LinuxSubIntf, thatWasMadeAnewMeanwhileIsLeftAlone ) {
   vlan( "et1.100", "et1", 100 );
   vlan( "et1.200", "et1", 200 );
   up( "et1.100" );
   ip( "address add 2001:db8:9::1/64 dev et1.100 nodad" );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:9::2" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   for ( const auto & [name, id] : { std::pair( "et1.100", 100 ), std::pair( "et1.200", 200 ) } ) {
      ip( Vel::text( "link del ", name ) );
      vlan( name, "et1", id );
   }
   const LinkSetResult result = set( "et1", true, saved );
   EXPECT_TRUE( result.restore.ok() ) << result.restore.text();
   EXPECT_FALSE( has( "-6 address show dev et1.100", "2001:db8:9::1" ) );
   EXPECT_EQ( "", ipSays( "-6 route show 2001:db8:77::/48" ) );
   EXPECT_TRUE( adminUp( "et1.200" ) );
}

TEST_F( LinuxSubIntf, thatWasRenamedMeanwhileIsTheSame ) {
   vlan( "et1.100", "et1", 100 );
   up( "et1.100" );
   ip( "address add 2001:db8:9::1/64 dev et1.100 nodad" );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:9::2" );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   ip( "link set et1.100 name storage" );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   EXPECT_TRUE( has( "-6 route show 2001:db8:77::/48", "dev storage" ) );
}

TEST_F( LinuxSubIntf, staysUpIfSomebodyElseHasRaisedItsLink ) {
   vlan( "et1.100", "et1", 100 );
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   up( "et1" );
   EXPECT_TRUE( adminUp( "et1.100" ) );
   EXPECT_TRUE( set( "et1", true, made->raisedByOthers( saved ) ).restore.ok() );
   EXPECT_TRUE( adminUp( "et1.100" ) );
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   EXPECT_FALSE( adminUp( "et1.100" ) );
}

/// The agent was killed after it had raised the link, and the next one asks for the same.
TEST_F( LinuxSubIntf, comesBackIfTheRestoreIsBrokenOff ) {
   vlan( "et1.100", "et1", 100 );
   vlan( "et1.200", "et1", 200 );
   up( "et1.100" );
   ip( "address add 2001:db8:9::1/64 dev et1.100 nodad" );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:9::2" );
   const std::vector< Vel::String > before = everything();
   const Vel::String saved = snapshot( "et1" );
   EXPECT_TRUE( set( "et1", false ).link.ok() );
   up( "et1" );
   made = switchNewLinux( loop );
   listener = {};
   started();
   EXPECT_TRUE( set( "et1", true, saved ).restore.ok() );
   until( [&] { return before == everything(); } );
   EXPECT_EQ( before, everything() );
   EXPECT_FALSE( adminUp( "et1.200" ) );
}

TEST_F( LinuxSubIntf, ofABondComesBack ) {
   ip( "link add bond0 type bond mode active-backup" );
   ip( "link set et2 down" );
   ip( "link set et2 master bond0" );
   up( "bond0" );
   vlan( "bond0.100", "bond0", 100 );
   vlan( "bond0.200", "bond0", 200 );
   up( "bond0.100" );
   untilUp( "bond0" );
   ip( "address add 2001:db8:9::1/64 dev bond0.100 nodad" );
   ip( "address add 10.9.0.1/24 dev bond0.100" );
   ip( "route add 10.77.0.0/16 via 10.9.0.2" );
   ip( "-6 route add 2001:db8:77::/48 via 2001:db8:9::2" );
   const std::vector< Vel::String > before = everything();
   const Wire::IntfId bond = Wire::PortChannelIntfId( "bond0" );
   heard();
   const Vel::String saved = made->linkSnapshot( bond ).text;
   for ( const bool isUp : { false, true } ) {
      const RequestId id = 500 + isUp;
      made->linkSet( id, bond, isUp, saved );
      until( [&] { return listener.results.count( id ) > 0; } );
      EXPECT_TRUE( listener.results.at( id ).link.ok() && listener.results.at( id ).restore.ok() );
      EXPECT_EQ( isUp, adminUp( "bond0.100" ) );
   }
   until( [&] { return before == everything(); } );
   EXPECT_EQ( before, everything() );
   EXPECT_FALSE( adminUp( "bond0.200" ) );
}

TEST_F( LinuxSubIntf, hundredsOfOneLinkComeBack ) {
   Vel::String batch;
   for ( int i = 1; i <= 300; ++i ) {
      batch += Vel::text( "link add link et1 name et1.", i, " type vlan id ", i, "\n" );
      if ( i % 3 == 0 )
         continue;
      batch += Vel::text(
         "link set et1.", i, " up\naddress add 2001:db8:", i, "::1/64 dev et1.", i, " nodad\naddress add 10.",
         i / 256, ".", i % 256, ".1/24 dev et1.", i, "\nroute add 172.", 16 + i / 256, ".", i % 256,
         ".0/24 via 10.", i / 256, ".", i % 256, ".2\n" );
   }
   burst( batch );
   comesBack( {} );
   EXPECT_TRUE( adminUp( "et1.100" ) && adminUp( "et1.200" ) );
   for ( const char * name : { "et1.3", "et1.300" } )
      EXPECT_FALSE( adminUp( name ) ) << name;
   EXPECT_TRUE( has( "-6 address show dev et1.299", "2001:db8:299::1" ) );
   EXPECT_TRUE( has( "route show 172.17.43.0/24", "via 10.1.43.2" ) );
}

} // namespace
} // namespace DataPlane::Linux
