#include "DataPlane/Simulated/RouteTable.h"
#include "DataPlane/Simulated/SimulatedSwitch.h"

#include <utility>

/// What the simulated switch tells of its routes and of the links below them.
namespace DataPlane::Simulated {

RouteTable SimulatedSwitch::routesNow() const {
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
      if ( link->intf.kind() != Wire::IntfId::Kind::ethernet ) {
         routed.needs.emplace_back();
         for ( const SimLink * member : link->members )
            if ( member->present )
               routed.needs.back().emplace_back( member->intf.name() );
      }
      table.links.push_back( std::move( routed ) );
   }
   return table;
}

std::optional< double > SimulatedSwitch::portSpeed( const Vel::String & name ) {
   for ( const auto & link : links_ )
      if ( link->present && link->intf.name() == name && operUp( *link ) )
         return link->speedBps;
   return std::nullopt;
}

AddressWay SimulatedSwitch::wayNow( const RouteQuestion & question ) const {
   const Vel::String & address = question.address;
   if ( !question.link.empty() )
      return { "", false, address + "%" + question.link, { { { question.link } } } };
   return routesFault_.empty() ? wayTo( address, routes_ ) : AddressWay{ routesFault_, false, "", {} };
}

/// All who ask in one turn are answered with one reading.
void SimulatedSwitch::routesAsk( const RouteQuestion & question, RoutesAnswered answered ) {
   if ( !listener_ )
      return;
   if ( routesAsked_.empty() )
      later( 0, [this, listening = listening_] {
         if ( listener_ && listening == listening_ )
            answerForRoutes();
      } );
   routesAsked_.emplace_back( question, std::move( answered ) );
}

void SimulatedSwitch::answerForRoutes() {
   const auto table = std::make_shared< const RouteTable >( routesNow() );
   for ( const auto & [question, answered] : std::exchange( routesAsked_, {} ) )
      answered( { table, question.address.empty() ? std::nullopt : std::optional( wayNow( question ) ) } );
}

} // namespace DataPlane::Simulated
