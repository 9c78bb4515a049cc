#pragma once

#include "MaintenancePlugin/DrainWatchPlugin.h"
#include "MaintenancePlugin/DrainWatchSmLoader.h"

/// Purpose: names for what the plug-in's types take and give, for the tests of their surface.
namespace MaintenanceMode {

using Vel::Ptr;
using Vel::String;
using Vel::U32;
using Vel::U64;
using Wire::IntfId;
using AllEthIntfCounterPtrDir = Interface::IntfCounterMasquerade::AllEthIntfCounterPtrDir;
using Profile = IntfMaintenanceProfile::Status;
using Maintenance::MonIntfState;
using ProgressDir = Ptr< const Stage::ProgressDir >;
using CompletionStatusDir = Ptr< const Stage::CompletionStatusDir >;
using AgentConfig = Ptr< Stage::AgentConfig >;
using AgentStatus = Ptr< Stage::AgentStatus >;

/// The inputs of the root, in their order.
template < template < class... > class Apply, class... First >
using RootInputs = Apply<
   First..., Ptr< const AllEthIntfCounterPtrDir >, Ptr< const Lag::Config >,
   Ptr< const Bridging::VlanStatusDir >, Ptr< const Interface::AllIntfStatusDir >,
   Ptr< Maintenance::Unit::StatusDir >, Ptr< const Maintenance::MaintenanceGroup::ConfigDir >,
   Ptr< const IntfGroup::StatusDir >, Ptr< const IntfMaintenanceProfile::StatusDir >,
   Ptr< const IntfMaintenance::IntfToGroupDir >, Ptr< const Maintenance::GroupToUnitDir >,
   Ptr< Errdisable::CauseStatus >, Ptr< Maintenance::MonIntfStatusDir >,
   Ptr< const Maintenance::Profile::DefaultProfile >, CompletionStatusDir, CompletionStatusDir, AgentConfig,
   AgentConfig, AgentStatus, AgentStatus, ProgressDir, ProgressDir >;

} // namespace MaintenanceMode
