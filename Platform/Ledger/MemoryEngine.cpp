#include "Platform/Ledger/MemoryEngine.h"

#include "Platform/Vel/Error.h"

namespace Ledger {

Status MemoryEngine::checked( std::string_view key ) const {
   VEL_ASSERT( open_, "open()" );
   if ( key.empty() || key.size() > maxKey )
      return Status::failure( name_ + ": cannot write: a key of " + std::to_string( key.size() ) + " bytes" );
   return {};
}

Status MemoryEngine::begin() {
   VEL_ASSERT( !open_, "!open()" );
   open_ = true;
   return {};
}

Status MemoryEngine::put( std::string_view key, std::string_view value ) {
   const Status status = checked( key );
   if ( status.ok() )
      written_[Vel::String( key )] = Vel::String( value );
   return status;
}

Status MemoryEngine::del( std::string_view key ) {
   const Status status = checked( key );
   if ( status.ok() )
      written_[Vel::String( key )] = std::nullopt;
   return status;
}

Status MemoryEngine::delAll( std::string_view prefix ) {
   VEL_ASSERT( open_, "open()" );
   for ( auto it = written_.lower_bound( Vel::String( prefix ) );
         it != written_.end() && it->first.starts_with( prefix ); ++it )
      it->second = std::nullopt;
   for ( auto it = disk_.records.lower_bound( Vel::String( prefix ) );
         it != disk_.records.end() && it->first.starts_with( prefix ); ++it )
      written_[it->first] = std::nullopt;
   return {};
}

Status MemoryEngine::commit() {
   VEL_ASSERT( open_, "open()" );
   for ( auto & [key, value] : written_ ) {
      if ( value )
         disk_.records[key] = std::move( *value );
      else
         disk_.records.erase( key );
   }
   abort();
   return {};
}

void MemoryEngine::abort() {
   written_.clear();
   open_ = false;
}

Status MemoryEngine::walk( std::string_view prefix, const Visit & visit ) {
   VEL_ASSERT( !open_, "!open()" );
   for ( auto it = disk_.records.lower_bound( Vel::String( prefix ) );
         it != disk_.records.end() && it->first.starts_with( prefix ); ++it )
      if ( !visit( it->first, it->second ) )
         break;
   return {};
}

} // namespace Ledger
