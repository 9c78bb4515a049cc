#pragma once

#include "Platform/Counters/VelPool.h"
#include "Platform/Ledger/EntityManager.h"
#include "Platform/Maintenance/DumpPluginInfo.h"
#include "Platform/Vel/Dir.h"

namespace Maintenance {

/// Purpose: all that an agent gives to its plug-ins.
/// Owner: the agent.
///
/// Order of release: a plug-in's entry in the entity directory holds the context, and the context holds the
/// directory. Whoever owns the context deletes the entries first, which ends the plug-ins' work; otherwise
/// both stay for ever.
class PluginContext final : public Vel::Entity {
   VEL_ENTITY( PluginContext );
   PluginContext(
      const Vel::Ptr< Ledger::EntityManager > & entityManager,
      const Vel::Ptr< VelPool::EntityManager > & velPoolEntityManager );
   ~PluginContext() override;

   /// Where a plug-in puts the entity that does its work. Empty at first; never null.
   VEL_PARAM( Vel::Ptr< Vel::Dir >, entityDir );
   /// The state store.
   VEL_PARAM( Vel::Ptr< Ledger::EntityManager >, entityManager );
   /// The counter pool.
   VEL_PARAM( Vel::Ptr< VelPool::EntityManager >, velPoolEntityManager );

   /// Registers a dumper under its name, in place of one of the same name. It is forgotten when it is
   /// destroyed. Throws Vel::RangeError if it is null.
   void dumpPluginInfoIs( const Vel::Ptr< DumpPluginInfo > & dumper );
   /// Forgets the dumper of that name. False: there was none.
   bool dumpPluginInfoDel( const Vel::String & name );
   /// Null if absent.
   Vel::Ptr< DumpPluginInfo > dumpPluginInfo( const Vel::String & name ) const { return { find( name ) }; }
   /// Writes the text of every dumper to a file descriptor, in the order of registration.
   void dump( unsigned fd ) const;

 private:
   friend class DumpPluginInfo;
   DumpPluginInfo * find( const Vel::String & name ) const;
   void forget( DumpPluginInfo & dumper );

   std::vector< DumpPluginInfo * > dumpers_;
};

} // namespace Maintenance
