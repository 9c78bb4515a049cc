#include "Config/Diagnostics.h"

#include <algorithm>

namespace Config {

unsigned Diagnostics::file( const std::string & name ) {
   files_.push_back( name );
   return static_cast< unsigned >( files_.size() - 1 );
}

void Diagnostics::error( Place place, std::string message ) {
   errors_.push_back( { place, std::move( message ) } );
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

std::vector< Error > Diagnostics::take() {
   std::stable_sort(
      errors_.begin(), errors_.end(), []( const Entry & a, const Entry & b ) { return a.place < b.place; } );
   std::vector< Error > result;
   for ( Entry & entry : errors_ )
      result.push_back(
         { files_[entry.place.file], entry.place.line, entry.place.column, std::move( entry.message ) } );
   errors_.clear();
   return result;
}

} // namespace Config
