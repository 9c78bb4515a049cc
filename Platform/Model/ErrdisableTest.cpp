#include "Platform/Model/Errdisable.h"

#include <gtest/gtest.h>

namespace {

using namespace Errdisable;

const Wire::EthIntfId et1( "et1" );

struct CauseObserver {
   struct VelCause final : Vel::ReactorTo< CauseObserver, CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override {
         const double * const time = entity()->intfStatus( intf );
         sm()->log += time ? Vel::text( intf, "@", *time, " " ) : Vel::text( intf, " gone " );
      }
   };
   Vel::Watch< VelCause > cause;
   Vel::String log;
};

TEST( CauseStatus, tellsSinceWhenAnInterfaceIsHeldDown ) {
   const auto cause = Vel::make< CauseStatus >( "maintenance-shutdown" );
   CauseObserver observer;
   observer.cause.is( cause, &observer ).hasNotificationActiveIs( true );
   cause->intfStatusIs( et1, 5 );
   cause->intfStatusIs( et1, 5 );
   cause->intfStatusIs( et1, 7.5 );
   cause->intfStatusDel( et1 );
   cause->intfStatusDel( et1 );
   EXPECT_EQ( "et1@5 et1@7.5 et1 gone ", observer.log );
}

TEST( CauseStatus, namesItselfAndItsCauseGroup ) {
   const auto cause = Vel::make< CauseStatus >( "maintenance-shutdown" );
   cause->causeGroupNameIs( "maintenance" );
   EXPECT_EQ( "maintenance-shutdown", cause->name() );
   EXPECT_EQ( "maintenance", cause->causeGroupName() );
}

TEST( CauseStatus, listsItsInterfacesInTheOrderOfTheirEntries ) {
   const auto cause = Vel::make< CauseStatus >( "maintenance-shutdown" );
   for ( const char * name : { "et3", "et1", "et2" } )
      cause->intfStatusIs( Wire::EthIntfId( name ), 1 );
   cause->intfStatusIs( Wire::EthIntfId( "et3" ), 2 );
   Vel::String walked;
   for ( const auto & [intf, since] : cause->intfStatusRange() )
      walked += Vel::text( intf, "@", since, " " );
   EXPECT_EQ( "et3@2 et1@1 et2@1 ", walked );
}

TEST( CauseGroup, hasFixedOrdinalsAndTexts ) {
   EXPECT_EQ( "interfaceCause", stringValue( CauseGroupType( 1 ) ) );
   EXPECT_EQ( "none", stringValue( CauseGroupType( 0 ) ) );
   EXPECT_EQ( "CauseGroupType(2)", stringValue( CauseGroupType( 2 ) ) );
   EXPECT_EQ( "normal", stringValue( CauseGroupPriority( 0 ) ) );
   EXPECT_EQ( "CauseGroupPriority(1)", stringValue( CauseGroupPriority( 1 ) ) );
}

} // namespace
