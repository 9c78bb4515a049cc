#!/usr/bin/env bash
# shellcheck source=Tools/testing.sh
. "$(dirname "${BASH_SOURCE[0]}")/testing.sh"

# _check LINE...: the list of exceptions in standard input, the lines in Folder/File.cpp.
_check() {
   file Tools/world-files.txt
   printf '%s\n' "$@" | file "${name:-Folder/File.cpp}"
   run "$tools/check-world" .
}

# _each KIND LINE...: each line alone must be caught as that kind.
_each() {
   local kind=$1 line
   shift
   for line in "$@"; do
      _check "$line" </dev/null
      [ "$status" -eq 1 ] || fail "should have caught: $line"
      says "Folder/File.cpp:1: $kind: "
   done
}

catchesClocks() {
   _each clock 'clock_gettime( CLOCK_BOOTTIME, &now );' 'auto t = std::chrono::steady_clock::now();' \
      'using Clock = std::chrono::system_clock;' 'return time( nullptr );' 'x = std::time( NULL );' \
      'gettimeofday( &tv, nullptr );' 'c = std::clock();' 'int fd = timerfd_create( 0, 0 );'
}

catchesWaiting() {
   _each sleep 'sleep( 1 );' '::sleep( 1 );' 'std::this_thread::sleep_for( 1s );' 'if( x ) usleep( 5 );' \
      'else nanosleep( &a, &b );' 'n = epoll_wait( fd, events, 8, -1 );' 'n = ::poll( fds, 1, -1 );'
}

catchesRandomNumbers() {
   _each random 'x = rand() % 6;' 'x = std::rand();' 'return rand();' 'std::random_device device;' 'srand( 1 );' \
      'std::mt19937 engine( 1 );' 'x = 2 * rand();' 'f( random() );' 'getrandom( buf, 4, 0 );'
}

catchesSockets() {
   _each socket 'int fd = socket( AF_UNIX, SOCK_STREAM, 0 );' 'if( ::bind( fd, a, n ) < 0 )' \
      'return connect( fd, a, n );' 'connect( fd, a, n );' 'socketpair( a, b, 0, fds );' \
      'fd = ::accept( fd, a, n );' 'nl = mnl_socket_open( NETLINK_ROUTE );' 'auto d = MHD_start_daemon( 0 );'
}

catchesProcesses() {
   _each process 'pid = fork();' 'if( ::kill( pid, SIGTERM ) )' 'kill( -pid, 9 );' 'system( "ls" );' \
      'execve( a, b, c );' 'posix_spawn( &p, a, 0, 0, b, c );' 'waitpid( pid, 0, 0 );' 'f = popen( "ls", "r" );'
}

letsTestsStartProcesses() {
   name=Folder/FileTest.cpp _check 'pid = fork();' 'kill( pid, 9 );' </dev/null
   passes
   saysNothing
}

namesFileAndLine() {
   _check 'int a;' '// text' 'int b = rand();' </dev/null
   fails
   says "Folder/File.cpp:3: random: 'rand' in a file that Tools/world-files.txt does not name for it"
}

passesOverCommentsAndStrings() {
   _check '// rand() and steady_clock' '/* sleep( 1 );' 'rand(); */ int x;' 'auto s = "rand()";' \
      'auto r = R"(' 'rand();' ')";' '#include <sys/timerfd_create>' </dev/null
   passes
   saysNothing
}

passesOverOurOwnWords() {
   _check 'double time() const;' 'x.time( 0 );' 'rates->time( 0 );' 'Clock & clock() const;' 'clock()->now();' \
      'double Rates::time( 0 )' 'void connect( Peer & peer );' 'std::unique_ptr< Socket > connect( Peer );' \
      'peer.connect( 1 );' 'void Peer::connect( int )' 'auto f = std::function( rand_ );' 'int sleep;' \
      'random.next();' 'void accept( Visitor & v );' 'accept( v );' 'std::array< int, 3 > operand( 1 );' \
      'Foo::Clock::time( 0 );' 'children.kill( 1 );' 'void kill( Id id );' 'void Real::kill( Id id )' </dev/null
   passes
   saysNothing
}

letsANamedFileUseItsKind() {
   _check 'auto t = std::chrono::steady_clock::now();' <<<'Folder/File.cpp clock: the production clock'
   passes
   saysNothing
}

keepsANamedFileToItsKind() {
   _check 'clock_gettime( 0, &t );' 'x = rand();' <<<'Folder/File.cpp clock: the production clock'
   fails
   says 'Folder/File.cpp:2: random:'
   saysNot 'Folder/File.cpp:1:'
}

letsOnlyTestsMakeNumbersFromASeed() {
   name=Folder/FileTest.cpp _check 'std::mt19937 engine( 7 );' 'std::random_device d;' </dev/null
   fails
   says "Folder/FileTest.cpp:2: random: 'random_device'"
   saysNot 'Folder/FileTest.cpp:1:'
}

refusesAListThatIsOutOfDate() {
   _check 'int x;' <<<'Folder/File.cpp clock: the production clock'
   fails
   says 'Tools/world-files.txt:1: Folder/File.cpp does not use clock (any more)'
}

refusesAListWithoutReasons() {
   _check 'rand();' <<<'Folder/File.cpp random'
   fails
   says 'Tools/world-files.txt:1: a line reads FILE KIND ...: why'
}

refusesAKindThatIsNone() {
   _check 'rand();' <<<'Folder/File.cpp dice: why not'
   fails
   says "Tools/world-files.txt:1: 'dice' is no kind"
}

runTest "$@"
