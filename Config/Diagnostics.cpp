#include "Config/Diagnostics.h"

#include <algorithm>
#include <utility>

namespace Config {

unsigned Diagnostics::file( const std::string & name ) {
   files_.push_back( name );
   return static_cast< unsigned >( files_.size() - 1 );
}

void Diagnostics::error( Place place, std::string message ) {
   errors_.push_back( { place, std::move( message ) } );
}

void Diagnostics::warning( Place place, std::string message ) {
   warnings_.push_back( { place, std::move( message ) } );
}

void Diagnostics::laterError( Place place, std::string message ) {
   if ( !acceptedBefore_ )
      error( place, std::move( message ) );
}

void Diagnostics::fileError( unsigned file, std::string message ) {
   error( { file, 0, 0 }, std::move( message ) );
}

std::string Diagnostics::text( Place place ) const {
   return files_[place.file] + ":" + std::to_string( place.line ) + ":" + std::to_string( place.column );
}

std::vector< Error > Diagnostics::take() { return sorted( std::exchange( errors_, {} ) ); }
std::vector< Error > Diagnostics::takeWarnings() { return sorted( std::exchange( warnings_, {} ) ); }

std::vector< Error > Diagnostics::sorted( std::vector< Entry > entries ) const {
   std::stable_sort(
      entries.begin(), entries.end(), []( const Entry & a, const Entry & b ) { return a.place < b.place; } );
   std::vector< Error > result;
   for ( Entry & entry : entries )
      result.push_back(
         { files_[entry.place.file], entry.place.line, entry.place.column, std::move( entry.message ) } );
   return result;
}

} // namespace Config
