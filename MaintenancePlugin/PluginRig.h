#pragma once

#include "MaintenancePlugin/DrainWatchSm.h"
#include "Platform/Cog/ManualClock.h"

#include <map>
#include <memory>

/// Purpose: the world around the plug-in, for tests: every entity that it reads or writes in memory, a manual clock,
/// traffic that fills the counters, and the framework's side of the stage protocol.
namespace MaintenanceMode {

/// Bits per second.
struct Traffic {
   double in = 0;
   double out = 0;
};

class PluginRig {
 public:
   using U32 = Vel::U32;
   using String = Vel::String;
   using Intf = Wire::IntfId;

   /// What the links do when an interface is shut for maintenance.
   enum class ShutLinks {
      keepTheirStatus, ///< the status is that of the link apart from our own shutdown
      goDown ///< the status falls a turn after the entry is added and rises a turn after it is removed
   };
   explicit PluginRig( ShutLinks shutLinks = ShutLinks::keepTheirStatus );
   ~PluginRig();

   // ---- links and their traffic
   static Intf port( const String & name ) { return Wire::EthIntfId( name ); }
   static Intf portChannel( const String & name ) { return Wire::PortChannelIntfId( name ); }
   static Intf vlan( const String & name, Vel::U16 id ) { return Wire::VlanIntfId( name, id ); }
   /// Makes the interface, up; an Ethernet port gets counters.
   void linkIs( const Intf & intf, bool up = true );
   void linkDel( const Intf & intf );
   /// Traffic of an Ethernet port from now on.
   void trafficIs( const Intf & intf, Traffic traffic );
   /// Brings the counters up to the present time, as happens by itself before timers run.
   void countTraffic();
   /// Counters move now instead of with the traffic.
   void octetsInc( const Intf & intf, Vel::U64 in, Vel::U64 out );
   void countersDel( const Intf & intf );
   void memberIs( const Intf & port, const Intf & portChannel );
   void vlanMemberIs( Vel::U16 vlanId, const Intf & member );

   // ---- configuration
   static Maintenance::GroupKey group( const String & name ) {
      return { Maintenance::GroupType::interfaceGroup, name };
   }
   IntfMaintenanceProfile::Status *
   profileIs( const String & name, double thresholdKbps, U32 loadInterval, bool shutdown, double maxDelay );
   void profileDel( const String & name );
   void defaultProfileIs( const String & name );
   /// Selects a profile for an interface: first the cause, then the selection.
   void selectIs( const Intf & intf, const String & profileName );
   void selectDel( const Intf & intf );
   /// Puts the interface into the group: its entry first (the default profile is selected for a new one).
   void groupMemberIs( const String & groupName, const Intf & intf );
   void groupMemberDel( const String & groupName, const Intf & intf );
   void mappingIs( const String & groupName, const String & unitName );
   void mappingDel( const String & groupName, const String & unitName );
   /// A unit with one group of its own name that holds the interfaces.
   void unitIs( const String & unitName, std::initializer_list< Intf > intfs );

   // ---- the framework's side of the stages
   Maintenance::Unit::Status & unit( const String & unitName );
   /// Starts the enter or exit of a unit in the order that the framework keeps. Returns the instance name.
   String enter( const String & unitName );
   String exit( const String & unitName );
   /// The framework has seen all stages complete: the unit is in maintenance, or normal again.
   void entered( const String & unitName );
   void exited( const String & unitName );
   /// Whether the plug-in's completion entry for the unit's present enter or exit instance is there.
   bool enterComplete( const String & unitName );
   bool exitComplete( const String & unitName );

   // ---- time and the plug-in
   /// Makes the root, as the loader does when its mounts are complete, and lets the first turns run.
   void start();
   /// The same without the turns.
   void begin();
   /// The root goes as when the plug-in is unloaded.
   void stop();
   /// The process is gone without a word; the entities are what a store keeps of them. The traffic goes on.
   void crash();
   /// crash(), then start(): a root over what a store keeps.
   void crashAndRestart();
   void advance( double seconds ) { clock->advance( seconds ); }
   void settle() { clock->runUntilIdle(); }
   double now() const { return clock->currentTime(); }

   // ---- what came of it
   Maintenance::MonIntfStatus * record( const Intf & intf ) const {
      return monIntfStatusDir->monIntfStatus( intf );
   }
   bool shut( const Intf & intf ) const { return cause->intfStatus( intf ) != nullptr; }
   DrainWatchSmDebugCounters & counters() const { return *root->counters(); }
   /// Everything that `write` writes to a descriptor.
   template < class Write >
   static String written( Write write ) {
      const int fd = captureBegin();
      write( fd );
      return captureEnd( fd );
   }

   Vel::Ptr< Cog::ManualClock > clock;
   Vel::Ptr< Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir > phyCounterDir;
   Vel::Ptr< Lag::Config > lagConfig;
   Vel::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
   Vel::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir;
   Vel::Ptr< Maintenance::Unit::StatusDir > unitStatusDir;
   Vel::Ptr< Maintenance::MaintenanceGroup::ConfigDir > maintenanceGroupDir;
   Vel::Ptr< IntfGroup::StatusDir > intfGroupStatusDir;
   Vel::Ptr< IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
   Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroupDir;
   Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnitDir;
   Vel::Ptr< Errdisable::CauseStatus > cause;
   Vel::Ptr< Maintenance::MonIntfStatusDir > monIntfStatusDir;
   Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultProfile;
   /// One stage class.
   struct StageClass {
      Vel::Ptr< Stage::CompletionStatusDir > completionStatus;
      Vel::Ptr< Stage::AgentConfig > agentConfig;
      Vel::Ptr< Stage::AgentStatus > agentStatus;
      Vel::Ptr< Stage::ProgressDir > progressDir;
   };
   StageClass enterClass, exitClass;
   Vel::Ptr< DrainWatchSm > root;

 private:
   struct Port {
      Traffic traffic;
      double since = 0; ///< up to when the traffic has been counted
      double in = 0;    ///< octets, with what is left of a whole one
      double out = 0;
   };
   struct Machinery;
   static int captureBegin();
   static String captureEnd( int fd );
   void models();
   void startStage( StageClass & stageClass, const String & instanceName );
   void retireStage( StageClass & stageClass, const String & instanceName );

   ShutLinks shutLinks_;
   std::map< Intf, Port > ports_;
   std::unique_ptr< Machinery > machinery_;
};

} // namespace MaintenanceMode
