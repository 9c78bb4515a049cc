#include "Platform/Model/Lag.h"

namespace Lag {

namespace {
const Vel::TypeRegistration< Config > configType;
}

void EthPhyIntfLagConfig::portChannelIs( const Wire::IntfId & argument ) {
   if ( argument == portChannel_ )
      return;
   const Wire::IntfId wanted = argument;
   if ( config_ ) {
      config_->memberDel( *this );
      config_->memberAdd( *this, wanted );
   }
   portChannelStore( wanted );
}

Config::~Config() {
   for ( const auto & [key, port] : phyIntf_ )
      port->config_ = nullptr;
}

EthPhyIntfLagConfig * Config::phyIntfIs( const Wire::IntfId & intf ) {
   if ( EthPhyIntfLagConfig * port = phyIntf( intf ) )
      return port;
   return phyIntfStore( intf, Vel::make< EthPhyIntfLagConfig >( intf, this, nextPlace_++ ) );
}

bool Config::phyIntfDel( const Wire::IntfId & intf ) {
   EthPhyIntfLagConfig * const port = phyIntf( intf );
   if ( !port )
      return false;
   memberDel( *port );
   port->config_ = nullptr;
   return phyIntfTake( intf );
}

void Config::phyIntfDelAll() {
   while ( const Wire::IntfId * intf = phyIntfFirst() )
      phyIntfDel( *intf );
}

Config::MemberRange Config::memberRange( const Wire::IntfId & portChannel ) const {
   static const Vel::Ptr< const Members > nobody = Vel::make< Members >();
   const auto it = members_.find( portChannel );
   return MemberRange( it == members_.end() ? nobody : it->second );
}

void Config::memberAdd( const EthPhyIntfLagConfig & port, const Wire::IntfId & portChannel ) {
   if ( portChannel.empty() )
      return;
   Vel::Ptr< Members > & members = members_[portChannel];
   if ( !members )
      members = Vel::make< Members >();
   *members->intf.emplace( port.place_ ).first = port.intf();
}

void Config::memberDel( const EthPhyIntfLagConfig & port ) {
   const auto it = members_.find( port.portChannel() );
   if ( it == members_.end() )
      return;
   // A walk may hold the members: it sees its port leave before the list is let go.
   Wire::IntfId gone;
   it->second->intf.extract( port.place_, gone );
   if ( it->second->intf.empty() )
      members_.erase( it );
}

} // namespace Lag
