#include "DataPlane/Simulated/RouteTable.h"
#include "DataPlane/Simulated/SimulatedSwitch.h"

/// What the simulated switch tells of its routes and of the links below them.
namespace DataPlane::Simulated {

RouteAnswer SimulatedSwitch::routesNow( const RouteQuestion & question ) const {
   RouteTable table;
   table.problem = routesFault_;
   if ( routesFault_.empty() )
      table.classes = classesOf( routes_ );
   for ( const auto & link : links_ ) {
      if ( !link->present )
         continue;
      RoutedLink routed;
      routed.name = Vel::String( link->intf.name() );
      routed.up = operUp( *link );
      routed.aggregate = link->intf.kind() == Wire::IntfId::Kind::portChannel;
      routed.speedBps = link->speedBps;
      if ( link->intf.kind() != Wire::IntfId::Kind::ethernet ) {
         routed.needs.emplace_back();
         for ( const SimLink * member : link->members )
            if ( member->present )
               routed.needs.back().emplace_back( member->intf.name() );
      }
      table.links.push_back( std::move( routed ) );
   }
   RouteAnswer answer;
   answer.table = std::make_shared< const RouteTable >( std::move( table ) );
   if ( !question.address.empty() )
      answer.way = wayTo( question.address, routes_ );
   if ( answer.way && !routesFault_.empty() )
      *answer.way = { routesFault_, false, "", {} };
   return answer;
}

void SimulatedSwitch::routesAsk( const RouteQuestion & question, RoutesAnswered answered ) {
   later( 0, [this, question, answered = std::move( answered ), listening = listening_] {
      if ( listener_ && listening == listening_ )
         answered( routesNow( question ) );
   } );
}

} // namespace DataPlane::Simulated
