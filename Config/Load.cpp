#include "Config/Load.h"

#include "Config/Accepted.h"
#include "Config/Files.h"
#include "Config/Hints.h"
#include "Config/Reader.h"
#include "Config/Yaml.h"

#include <algorithm>

namespace Config {

namespace {

constexpr const char * dropInFolder = "maintd.d";

/// The files of one run, read one after the other.
class Loading {
 public:
   explicit Loading( bool acceptedBefore = false ) : diagnostics_( acceptedBefore ), reader_( diagnostics_ ) {
      root_.kind = Node::Kind::map;
   }

   void mainFile( const std::string & name, const Parsed< std::string > & text ) {
      const unsigned file = diagnostics_.file( name );
      mainRoot( file, read( file, text ) );
   }

   void mainText( const std::string & name, std::string_view text ) {
      const unsigned file = diagnostics_.file( name );
      mainRoot( file, readYaml( text, file, diagnostics_ ) );
   }

   void dropIn( const std::string & name, const Parsed< std::string > & text ) {
      std::optional< Node > node = read( diagnostics_.file( name ), text );
      if ( !node || node->kind == Node::Kind::none || !isMap( *node ) )
         return;
      reader_.version( *node, false );
      std::erase_if( node->children, []( const Node & child ) { return child.key == "version"; } );
      merge( root_, std::move( *node ), diagnostics_ );
   }

   void error( const std::string & name, std::string message ) {
      diagnostics_.fileError( diagnostics_.file( name ), std::move( message ) );
      diagnostics_.contentMissing();
   }

   Result finish() {
      Configuration configuration = reader_.read( root_, {} );
      Result result;
      if ( diagnostics_.empty() ) {
         hint( configuration, root_, diagnostics_ );
         result.warnings = diagnostics_.takeWarnings();
         result.configuration = std::move( configuration );
      }
      result.errors = diagnostics_.take();
      return result;
   }

 private:
   void mainRoot( unsigned file, std::optional< Node > node ) {
      if ( !node )
         return;
      if ( node->kind == Node::Kind::none ) {
         diagnostics_.error( { file, 1, 1 }, "the file is empty" );
         diagnostics_.contentMissing();
      } else if ( isMap( *node ) ) {
         reader_.version( *node, true );
         root_ = std::move( *node );
      }
   }

   std::optional< Node > read( unsigned file, const Parsed< std::string > & text ) {
      if ( text && text.value->size() <= maxFileSize )
         return readYaml( *text.value, file, diagnostics_ );
      diagnostics_.fileError(
         file, text ? "the file is larger than " + std::to_string( maxFileSize ) + " bytes" : text.error );
      diagnostics_.contentMissing();
      return std::nullopt;
   }

   bool isMap( const Node & node ) {
      if ( node.kind == Node::Kind::map )
         return true;
      if ( node.kind != Node::Kind::refused )
         diagnostics_.error( node.place, "a configuration is a map of keys and values" );
      diagnostics_.contentMissing();
      return false;
   }

   Diagnostics diagnostics_;
   Reader reader_;
   Node root_;
};

bool isDropIn( const std::string & name ) {
   constexpr std::string_view suffix = ".yaml";
   return name.size() > suffix.size() && name.ends_with( suffix ) && name[0] != '.';
}

std::string dropInFolderOf( const std::string & path ) {
   return path.substr( 0, path.rfind( '/' ) + 1 ) + dropInFolder;
}

} // namespace

Result load( const std::string & path, Files & files ) {
   Loading loading;
   loading.mainFile( path, files.read( path ) );
   const std::string folder = dropInFolderOf( path );
   Parsed< std::vector< std::string > > names = files.list( folder );
   if ( names ) {
      std::sort( names.value->begin(), names.value->end() );
      for ( const std::string & name : *names.value )
         if ( isDropIn( name ) )
            loading.dropIn( folder + "/" + name, files.read( folder + "/" + name ) );
   } else {
      loading.error( folder, names.error );
   }
   return loading.finish();
}

Result load( const std::string & path ) {
   SystemFiles files;
   return load( path, files );
}

Result parse( std::string_view text, const std::string & fileName ) {
   Loading loading;
   loading.mainText( fileName, text );
   return loading.finish();
}

Result parseAccepted( std::string_view text, const std::string & fileName ) {
   Loading loading( true );
   loading.mainText( fileName, text );
   return loading.finish();
}

} // namespace Config
