#pragma once

#include "Platform/Model/Wire.h"
#include "Platform/Vel/Declare.h"

/// Purpose: which ports are configured into which port-channel, whether or not they are up.
/// Written by the agent from the switch's configuration; read by whoever samples port-channels.
///
/// Invariants:
/// 1. The members of a port-channel are exactly the ports in `phyIntf` that name it, in the order of
///    `phyIntf`, at any moment that a reactor can see.
/// 2. A port that has left `phyIntf` counts nowhere, even if somebody holds it and writes to it.
namespace Lag {

class Config;

/// One port. Made by Config::phyIntfIs.
class EthPhyIntfLagConfig final : public Vel::Entity {
   VEL_ENTITY( EthPhyIntfLagConfig );
   EthPhyIntfLagConfig( const Wire::IntfId & intf, Config * config, Vel::U64 place )
      : intf_( intf ), config_( config ), place_( place ) {}

   VEL_PARAM( Wire::IntfId, intf );
   /// The port-channel that the port is configured into; the empty id if it is in none.
   VEL_STATE( Wire::IntfId, portChannel, onPortChannel );
   void portChannelIs( const Wire::IntfId & portChannel );

 private:
   friend class Config;
   Config * config_; ///< null once the port has left it
   Vel::U64 place_;  ///< position in the order of Config::phyIntf
};

class Config final : public Vel::Entity {
   VEL_ENTITY( Config );
   ~Config() override;

   VEL_OWNED( Wire::IntfId, EthPhyIntfLagConfig, phyIntf, onPhyIntf );
   /// The port that is there, or a new one in no port-channel.
   EthPhyIntfLagConfig * phyIntfIs( const Wire::IntfId & intf );
   /// False if there was none.
   bool phyIntfDel( const Wire::IntfId & intf );
   void phyIntfDelAll();

 private:
   /// Members of one port-channel by their place.
   struct Members final : Vel::PtrInterface {
      Vel::Collection< Vel::U64, Wire::IntfId, Vel::Ordered > intf;
   };

 public:
   /// The members of a port-channel, for `for ( const Wire::IntfId & member : config->memberRange( lag ) )`.
   /// Members may come and go during the walk: one that leaves is not visited any more, one that joins is
   /// visited if the walk has not passed its place. The walk of a port-channel that has lost all of its
   /// members is over. Look-up and each step cost O(1).
   class MemberRange {
      using Walk = Vel::Collection< Vel::U64, Wire::IntfId, Vel::Ordered >::Walk;

    public:
      class Iterator {
       public:
         explicit Iterator( const Members & members ) : walk_( members.intf ) {}
         Wire::IntfId operator*() const { return ( *walk_ ).second; }
         Iterator & operator++() {
            ++walk_;
            return *this;
         }
         bool operator!=( Vel::Collection< Vel::U64, Wire::IntfId, Vel::Ordered >::End end ) const {
            return walk_ != end;
         }

       private:
         Walk walk_;
      };
      Iterator begin() const { return Iterator( *members_ ); }
      auto end() const { return members_->intf.end(); }
      Vel::U32 size() const { return members_->intf.size(); }

    private:
      friend class Config;
      explicit MemberRange( Vel::Ptr< const Members > members ) : members_( std::move( members ) ) {}
      Vel::Ptr< const Members > members_;
   };
   MemberRange memberRange( const Wire::IntfId & portChannel ) const;

 private:
   friend class EthPhyIntfLagConfig;
   void memberAdd( const EthPhyIntfLagConfig & port, const Wire::IntfId & portChannel );
   void memberDel( const EthPhyIntfLagConfig & port );

   Vel::U64 nextPlace_ = 0;
   std::unordered_map< Wire::IntfId, Vel::Ptr< Members > > members_; ///< none of them empty
};

} // namespace Lag
