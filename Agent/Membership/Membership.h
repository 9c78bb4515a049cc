#pragma once

#include "Config/Configuration.h"
#include "Config/Membership.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"

#include <map>
#include <set>

/// Purpose: keeps profiles, groups, mappings and selections of the model equal to the configuration, for the
/// interfaces that exist.
/// Owner: the agent.
///
/// Works by comparing what is wanted with what is. Order of writes:
/// 1. profiles are edited in place, never replaced; then new ones are added; then the default is named
/// 2. for each interface: new groups, cause, selection
/// 3. members of groups, mappings of groups to units
/// 4. removals, in the reverse order
///
/// So an interface never stands in a group without a selected profile that exists, and one that moves between two
/// groups of a unit is a member of the unit all the time. A configured name without an interface has no entry
/// anywhere.
namespace Agent {

class Membership {
 public:
   /// All given.
   struct Model {
      Vel::Ptr< IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< Maintenance::Profile::DefaultProfile > defaultIntfProfile;
      Vel::Ptr< IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< IntfGroup::StatusDir > intfGroupStatusDir;
      Vel::Ptr< Maintenance::GroupToUnitDir > groupToUnitDir;
   };
   explicit Membership( Model model ) : model_( std::move( model ) ) {}

   /// Applies a configuration that was accepted. The same one again changes nothing.
   void configurationIs( const Config::Configuration & configuration );
   /// An interface appears; one of the same name that is of another kind leaves first.
   void intfIs( const Wire::IntfId & intf );
   void intfDel( const Wire::IntfId & intf );

   /// The interface of a kernel name, the empty id if there is none.
   Wire::IntfId intf( const std::string & name ) const;

 private:
   /// What an interface shall have.
   struct Wanted {
      std::set< std::string > groups;
      Config::AppliedProfile profile;
   };
   using WantedByIntf = std::map< Wire::IntfId, Wanted >;

   void apply();
   Wanted wanted( const Wire::IntfId & intf ) const;
   WantedByIntf wanted() const;
   void applyProfiles();
   void select( const Wire::IntfId & intf, const Wanted & wanted );
   void addToGroups( const Wire::IntfId & intf, const Wanted & wanted );
   void addMappings();
   void removeMappings();
   void removeMembers( const WantedByIntf & wanted );
   void removeProfiles();

   Model model_;
   Config::Configuration configuration_;
   std::map< Config::Member, std::set< std::string > > groupsByMember_; ///< of the configuration
   std::map< std::string, Wire::IntfId > intfs_;                        ///< by kernel name
};

} // namespace Agent
