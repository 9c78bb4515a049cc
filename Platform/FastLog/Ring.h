#pragma once

#include "Platform/FastLog/FastLog.h"

/// Purpose: the memory of a ring, plain or mapped from a file. Layout.h says what stands where.
namespace FastLog {

class Ring {
 public:
   /// `bytes` are for lines. Both throw Error; see fileIs().
   static Ring inMemory( std::size_t bytes );
   static Ring inFile( const std::string & path, std::size_t bytes );

   Ring() = default;
   Ring( Ring && other ) noexcept { swap( other ); }
   Ring & operator=( Ring && other ) noexcept {
      swap( other );
      return *this;
   }
   ~Ring();

   explicit operator bool() const { return base_; }
   FileHead & head() const { return *reinterpret_cast< FileHead * >( base_ ); }
   char * siteTable() const { return base_ + headBytes; }
   /// The block that has, or will have, this number.
   BlockHead * block( std::uint64_t number ) const {
      return reinterpret_cast< BlockHead * >(
         base_ + headBytes + siteTableBytes + number % head().blocks * blockBytes );
   }
   const char * base() const { return base_; }
   std::size_t bytes() const { return bytes_; }

 private:
   Ring( char * base, std::size_t bytes, int file ) : base_( base ), bytes_( bytes ), file_( file ) {}
   void swap( Ring & other );
   void writeHead();

   char * base_ = nullptr;
   std::size_t bytes_ = 0;
   int file_ = -1; ///< open and locked as long as this process writes it
};

} // namespace FastLog
