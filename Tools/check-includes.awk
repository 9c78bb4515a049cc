# The first file is the list of edges, the others are sources. Needs strip.awk.

BEGIN {
   list = ARGV[ 1 ]
   for( i = 2; i < ARGC; i++ ) exists[ ARGV[ i ] ] = 1
}

FILENAME == list {
   sub( /#.*/, "" )
   if( NF == 0 ) next
   colon = index( $0, ":" )
   if( !colon ) {
      offence( list, FNR, "a line needs a colon" )
      next
   }
   subject = substr( $0, 1, colon - 1 )
   targets = substr( $0, colon + 1 )
   if( subject ~ /^[ \t]*</ ) {
      readLibrary( subject, targets )
   } else {
      sub( /[ \t]+$/, "", subject )
      if( subject in lineOf ) offence( list, FNR, "'" subject "' stands here twice" )
      lineOf[ subject ] = FNR
      targetsOf[ subject ] = targets
      if( subject != "tests" && subject !~ / tests$/ ) folders[ ++folderCount ] = subject
   }
   next
}

FNR == 1 {
   if( !resolved ) resolve()
   folder = folderOf( FILENAME )
   isTest = FILENAME ~ /Test\.(h|cpp)$/
   isHeader = FILENAME ~ /\.h$/
}

{
   if( inCode() && $0 ~ /^[ \t]*#[ \t]*include/ ) checkInclude( $0 )
   strip( $0 )
}

END {
   if( !resolved ) resolve()
   findFileCircles()
   exit offences > 0
}

function offence( file, line, text ) {
   printf "%s:%d: %s\n", file, line, text
   offences++
}

function readLibrary( subject, targets,    words, n, i, outOfHeaders ) {
   outOfHeaders = sub( /not in headers/, "", subject )
   n = split( subject, words, " " )
   for( i = 1; i <= n; i++ ) {
      if( words[ i ] !~ /^<.+>$/ ) offence( list, FNR, "'" words[ i ] "' is no <PREFIX>" )
      libraries[ ++libraryCount ] = substr( words[ i ], 2, length( words[ i ] ) - 2 )
      libraryTargets[ libraryCount ] = targets
      libraryLine[ libraryCount ] = FNR
      libraryOutOfHeaders[ libraryCount ] = outOfHeaders
   }
}

# Once all lines are read: which folder may include which.
function resolve(    subject, i ) {
   resolved = 1
   for( subject in targetsOf ) grant( subject, targetsOf[ subject ], lineOf[ subject ] )
   for( i = 1; i <= libraryCount; i++ ) grant( "library " i, libraryTargets[ i ], libraryLine[ i ] )
   for( i = 1; i <= folderCount; i++ ) findFolderCircle( folders[ i ], folders[ i ] )
   for( i = 2; i < ARGC; i++ )
      if( folderOf( ARGV[ i ] ) == "" ) offence( ARGV[ i ], 1, "its folder has no line in " list )
}

function grant( subject, targets, line,    words, n, i, j, prefix ) {
   n = split( targets, words, " " )
   for( i = 1; i <= n; i++ ) {
      if( words[ i ] ~ /\/\*$/ ) {
         prefix = substr( words[ i ], 1, length( words[ i ] ) - 1 )
         for( j = 1; j <= folderCount; j++ )
            if( index( folders[ j ], prefix ) == 1 ) may[ subject, folders[ j ] ] = 1
      } else {
         if( !( words[ i ] in lineOf ) && !( subject ~ /^library / && words[ i ] ~ /^(tests|anywhere)$/ ) )
            offence( list, line, "'" words[ i ] "' has no line of its own" )
         may[ subject, words[ i ] ] = 1
      }
   }
}

function findFolderCircle( folder, path,    i ) {
   if( onPath[ folder ] ) {
      if( !circleSeen++ ) offence( list, lineOf[ folder ], "circle: " path )
      return
   }
   if( folderDone[ folder ] ) return
   onPath[ folder ] = 1
   for( i = 1; i <= folderCount; i++ )
      if( ( folder, folders[ i ] ) in may ) findFolderCircle( folders[ i ], path " -> " folders[ i ] )
   onPath[ folder ] = 0
   folderDone[ folder ] = 1
}

# The longest listed folder that holds the file.
function folderOf( file,    folder ) {
   if( file in folderOfFile ) return folderOfFile[ file ]
   folder = file
   while( folder != "" && !( folder in lineOf ) ) if( !sub( /\/[^\/]*$/, "", folder ) ) folder = ""
   return folderOfFile[ file ] = folder
}

function checkInclude( line,    target, to ) {
   sub( /^[ \t]*#[ \t]*include[ \t]*/, "", line )
   if( match( line, /^"[^"]*"/ ) ) {
      target = substr( line, 2, RLENGTH - 2 )
      if( !( target in exists ) ) {
         offence( FILENAME, FNR, "\"" target "\" is no file of this tree, by its path from the root" )
         return
      }
      edges[ FILENAME ] = edges[ FILENAME ] " " target
      lineOfEdge[ FILENAME, target ] = FNR
      to = folderOf( target )
      if( target ~ /Test\.h$/ && !isTest )
         offence( FILENAME, FNR, "only tests may include \"" target "\"" )
      else if( folder != "" && to != "" && !mayInclude( to ) )
         offence( FILENAME, FNR, folder " may not include " to " (\"" target "\")" )
   } else if( match( line, /^<[^>]*>/ ) ) {
      checkLibrary( substr( line, 2, RLENGTH - 2 ) )
   } else {
      offence( FILENAME, FNR, "names no file" )
   }
}

function mayInclude( to ) {
   if( to == folder || ( folder, to ) in may ) return 1
   return isTest && ( ( "tests", to ) in may || ( folder " tests", to ) in may )
}

function checkLibrary( header,    i, key ) {
   for( i = 1; i <= libraryCount; i++ ) {
      if( index( header, libraries[ i ] ) != 1 ) continue
      key = "library " i
      if( !( ( key, folder ) in may || ( key, "anywhere" ) in may || isTest && ( key, "tests" ) in may ) )
         offence( FILENAME, FNR, folder " may not include <" header ">" )
      else if( isHeader && libraryOutOfHeaders[ i ] )
         offence( FILENAME, FNR, "no header may include <" header ">" )
      return
   }
   if( header ~ /\// || header ~ /\.hpp$/ )
      offence( FILENAME, FNR, "<" header "> belongs to a library that " list " does not name" )
}

function findFileCircles(    i ) {
   for( i = 2; i < ARGC; i++ ) findFileCircle( ARGV[ i ], ARGV[ i ], "" )
}

function findFileCircle( file, path, from,    targets, n, i ) {
   if( fileOnPath[ file ] ) {
      offence( from, lineOfEdge[ from, file ], "circle: " substr( path, index( path, file ) ) )
      return
   }
   if( fileDone[ file ] ) return
   fileOnPath[ file ] = 1
   n = split( edges[ file ], targets, " " )
   for( i = 1; i <= n; i++ ) findFileCircle( targets[ i ], path " -> " targets[ i ], file )
   fileOnPath[ file ] = 0
   fileDone[ file ] = 1
}
