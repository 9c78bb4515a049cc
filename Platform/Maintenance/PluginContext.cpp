#include "Platform/Maintenance/PluginContext.h"

namespace Maintenance {

DumpPluginInfo::~DumpPluginInfo() {
   if ( registeredWith_ )
      registeredWith_->forget( *this );
}

PluginContext::PluginContext(
   const Vel::Ptr< Ledger::EntityManager > & entityManager,
   const Vel::Ptr< VelPool::EntityManager > & velPoolEntityManager )
   : entityDir_( Vel::make< Vel::Dir >() ),
     entityManager_( Vel::validPtr( entityManager ) ),
     velPoolEntityManager_( Vel::validPtr( velPoolEntityManager ) ) {}

PluginContext::~PluginContext() {
   for ( DumpPluginInfo * dumper : dumpers_ )
      dumper->registeredWith_ = nullptr;
}

void PluginContext::dumpPluginInfoIs( const Vel::Ptr< DumpPluginInfo > & dumper ) {
   Vel::validPtr( dumper );
   if ( find( dumper->name() ) == dumper.get() )
      return;
   dumpPluginInfoDel( dumper->name() );
   if ( PluginContext * other = dumper->registeredWith_ )
      other->forget( *dumper );
   dumpers_.push_back( dumper.get() );
   dumper->registeredWith_ = this;
}

bool PluginContext::dumpPluginInfoDel( const Vel::String & name ) {
   DumpPluginInfo * dumper = find( name );
   if ( dumper )
      forget( *dumper );
   return dumper != nullptr;
}

void PluginContext::dump( unsigned fd ) const {
   // A dump only reads, so no dumper comes or goes meanwhile.
   for ( const DumpPluginInfo * dumper : dumpers_ )
      dumper->dump( fd );
}

DumpPluginInfo * PluginContext::find( const Vel::String & name ) const {
   for ( DumpPluginInfo * dumper : dumpers_ )
      if ( dumper->name() == name )
         return dumper;
   return nullptr;
}

void PluginContext::forget( DumpPluginInfo & dumper ) {
   std::erase( dumpers_, &dumper );
   dumper.registeredWith_ = nullptr;
}

} // namespace Maintenance
