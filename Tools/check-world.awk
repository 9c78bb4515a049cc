# The first file is the list of exceptions, the others are sources. Needs strip.awk.
#
# A name is looked for in one of three ways, by how likely it is that our own code uses the same word:
#   anywhere      the word cannot mean anything else
#   called        the word before "(" that is no member (x.rand(), Foo::rand()) and no declaration (int rand();)
#   qualified     called, and written std:: or ::

BEGIN {
   list = ARGV[ 1 ]
   anywhere( "clock", "clock_gettime gettimeofday timespec_get timerfd_create timer_create setitimer " \
      "steady_clock system_clock high_resolution_clock file_clock utc_clock tai_clock gps_clock" )
   anywhere( "sleep", "usleep nanosleep clock_nanosleep sleep_for sleep_until epoll_wait epoll_pwait epoll_pwait2 " \
      "ppoll pselect" )
   anywhere( "random", "srand rand_r srandom drand48 lrand48 getrandom getentropy arc4random random_device " \
      "default_random_engine" )
   # A test may make numbers from a seed that it names.
   anywhere( "engine", "mt19937 mt19937_64 minstd_rand minstd_rand0 knuth_b" )
   anywhere( "socket", "socketpair accept4 getaddrinfo mnl_socket_open mnl_socket_open2 MHD_start_daemon " \
      "curl_easy_perform curl_multi_perform" )
   # A test may start processes and end them.
   anywhere( "process", "posix_spawn posix_spawnp execve execv execvp execl execlp execle execveat fexecve vfork waitpid " \
      "waitid pidfd_open SYS_pidfd_open" )
   called( "process", "fork popen system kill killpg" )
   called( "clock", "time" )
   called( "sleep", "sleep" )
   called( "random", "rand random" )
   called( "socket", "socket bind connect" )
   qualified( "clock", "clock" )
   qualified( "sleep", "poll select" )
   qualified( "socket", "accept listen" )
   keyword = "(^|[^A-Za-z0-9_])(return|co_return|co_yield|else|do|case|throw|and|or|not)$"
   suspicious = ""
   for( word in kindOf ) suspicious = suspicious ( suspicious == "" ? "" : "|" ) word
}

function anywhere( kind, words ) { enter( kind, words, "anywhere" ) }
function called( kind, words ) { enter( kind, words, "called" ) }
function qualified( kind, words ) { enter( kind, words, "qualified" ) }

function enter( kind, words, how,    list, n, i ) {
   n = split( words, list, " " )
   for( i = 1; i <= n; i++ ) {
      kindOf[ list[ i ] ] = kind
      howOf[ list[ i ] ] = how
   }
}

FILENAME == list {
   sub( /#.*/, "" )
   if( NF == 0 ) next
   colon = index( $0, ":" )
   n = split( substr( $0, 1, colon - 1 ), words, " " )
   if( n < 2 || substr( $0, colon + 1 ) !~ /[^ \t]/ ) {
      offence( list, FNR, "a line reads FILE KIND ...: why" )
      next
   }
   for( i = 2; i <= n; i++ ) {
      if( words[ i ] !~ /^(clock|sleep|random|socket|process)$/ )
         offence( list, FNR, "'" words[ i ] "' is no kind" )
      else
         allowed[ words[ 1 ], words[ i ] ] = FNR
   }
   next
}

FNR == 1 { isTest = FILENAME ~ /Test\.(h|cpp)$/ || FILENAME ~ /^(Tests|Bench)\// }

{
   code = strip( $0 )
   if( code ~ suspicious && code !~ /^[ \t]*#[ \t]*include/ ) check( code )
}

END {
   for( key in allowed ) {
      if( key in used ) continue
      split( key, parts, SUBSEP )
      offence( list, allowed[ key ], parts[ 1 ] " does not use " parts[ 2 ] " (any more)" )
   }
   exit offences > 0
}

function offence( file, line, text ) {
   printf "%s:%d: %s\n", file, line, text
   offences++
}

function check( code,    before, rest, word, kind ) {
   before = ""
   rest = code
   while( match( rest, /[A-Za-z_][A-Za-z0-9_]*/ ) ) {
      word = substr( rest, RSTART, RLENGTH )
      before = before substr( rest, 1, RSTART - 1 )
      rest = substr( rest, RSTART + RLENGTH )
      if( ( word in kindOf ) && isUse( word, before, rest ) ) {
         kind = kindOf[ word ]
         if( kind == "engine" ) kind = isTest ? "" : "random"
         if( kind == "process" && isTest ) kind = ""
         if( ( FILENAME, kind ) in allowed )
            used[ FILENAME, kind ] = 1
         else if( kind != "" )
            offence( FILENAME, FNR, kind ": '" word "' in a file that " list " does not name for it" )
      }
      before = before word
   }
}

function isUse( word, before, after,    how ) {
   how = howOf[ word ]
   if( how == "anywhere" ) return 1
   if( after !~ /^[ \t]*\(/ ) return 0
   if( word == "time" && after !~ /^[ \t]*\([ \t]*(nullptr|NULL|0|&)/ ) return 0
   sub( /[ \t]+$/, "", before )
   if( before ~ /(\.|->)$/ ) return 0
   if( sub( /[ \t]*::$/, "", before ) )   # the standard library's or the global one, not a class's own
      return before !~ /[A-Za-z0-9_>]$/ || before ~ /(^|[^A-Za-z0-9_])std$/ || before ~ keyword
   if( how == "qualified" ) return 0
   # After a type it is a declaration.
   if( before ~ /[A-Za-z0-9_]$/ ) return before ~ keyword
   if( kindOf[ word ] == "socket" && before ~ /[A-Za-z0-9_>][ \t]*[*&>]+$/ ) return 0
   return 1
}
