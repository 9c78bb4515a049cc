#pragma once

#include <optional>
#include <string>
#include <vector>

/// Purpose: the folder of the samples' files. What goes wrong is given as a text that names the place.
namespace Agent {

class SampleFolder {
 public:
   explicit SampleFolder( std::string path ) : path_( std::move( path ) ) {}
   ~SampleFolder();
   SampleFolder( const SampleFolder & ) = delete;
   SampleFolder & operator=( const SampleFolder & ) = delete;

   const std::string & path() const { return path_; }
   /// Opens it, also if it was open: another one may be there by now. Makes it if there is none. Empty: it is open.
   std::string open();
   /// Of the open folder; negative: it is not open.
   int descriptor() const { return descriptor_; }

   /// The interfaces that have a file, in the order of their files' names.
   std::vector< std::string > interfaces() const;
   bool has( const std::string & name ) const;
   /// When a file was changed last, wall time in seconds; infinity if there is none.
   double changed( const std::string & name ) const;
   void fileDel( const std::string & name );

   /// The whole of a file, up to 64 MB of it; nothing if it cannot be read.
   std::optional< std::string > content( const std::string & name ) const {
      return contentOf( descriptor_, name );
   }
   static std::optional< std::string > contentOf( int folder, const std::string & name );
   /// Replaces a file by one with this content; never leaves half of one. Empty: done.
   std::string contentIs( const std::string & name, const std::string & text );

 private:
   std::string path_;
   int descriptor_ = -1;
};

} // namespace Agent
