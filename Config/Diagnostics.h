#pragma once

#include "Config/Error.h"
#include "Config/Node.h"

#include <string>
#include <vector>

namespace Config {

/// Purpose: collects the errors and warnings of the files that are read together.
/// Owner: the call that reads them.
class Diagnostics {
 public:
   /// \param acceptedBefore  this was accepted once, maybe by a version with fewer rules
   explicit Diagnostics( bool acceptedBefore = false ) : acceptedBefore_( acceptedBefore ) {}

   /// Registers a file; its errors come before those of files that are registered later.
   /// \return its index for Place::file
   unsigned file( const std::string & name );

   void error( Place place, std::string message );
   /// What only rules forbid that earlier versions did not have: no error in what was accepted before.
   void laterError( Place place, std::string message );
   bool acceptedBefore() const { return acceptedBefore_; }
   void warning( Place place, std::string message );
   void fileError( unsigned file, std::string message ); ///< about a file as a whole

   /// A file could not be read to its end: what seems to be missing may stand there.
   void contentMissing() { complete_ = false; }
   bool complete() const { return complete_; }

   std::string text( Place place ) const;         ///< `file:line:col`
   bool empty() const { return errors_.empty(); } ///< of errors
   std::vector< Error > take();         ///< errors, sorted by file, then by place, then in the order reported
   std::vector< Error > takeWarnings(); ///< likewise

 private:
   struct Entry {
      Place place;
      std::string message;
   };
   std::vector< Error > sorted( std::vector< Entry > entries ) const;

   bool acceptedBefore_;
   std::vector< std::string > files_;
   std::vector< Entry > errors_, warnings_;
   bool complete_ = true;
};

} // namespace Config
