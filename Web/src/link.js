// The line to the agent: reads, and the stream of what happens. Knows when it was last heard of.

const root = 'api/v1/';
/** The agent sends a heartbeat at least this often, in seconds. */
const heartbeat = 15;
const silence = 2 * heartbeat;
/** A stream that is asked for again and answers within this time was never missed. */
const grace = 2;
const firstPause = 0.5, longestPause = 5;

/** An answer of the agent that is no success; `status` is that of HTTP. */
export class Refused extends Error {
   constructor( status, message ) {
      super( message );
      this.status = status;
   }
}

/** Reads what the API says. Throws Refused, or what fetch throws when nobody answers. */
export async function read( path ) {
   const reply = await fetch( root + path, { headers: { Accept: 'application/json' }, cache: 'no-store' } );
   let body = null;
   try {
      body = await reply.json();
   } catch {
      // Refused all the same, below.
   }
   if ( !reply.ok || body === null )
      throw new Refused( reply.status, body?.error?.message ?? `status ${reply.status}` );
   return body;
}

/**
 * The stream. Calls `onEvent( type, data )` for each event, `onUp( again )` when it is open (again: after a break) and
 * `onState( staleSince )` when the agent is gone or back: null, or the time in milliseconds when it was last heard of.
 * Goes on where it was: it asks for what came after the last event that it has seen.
 */
export class Stream {
   constructor( { onEvent, onUp, onState, types } ) {
      Object.assign( this, { onEvent, onUp, onState, types } );
      this.sequence = null;
      this.heard = Date.now();
      this.stale = false;
      this.opened = false;
      this.pause = firstPause;
      this.timer = null;
      this.source = null;
   }
   start() {
      this.open();
      setInterval( () => this.look(), 1000 );
   }
   open() {
      this.timer = null;
      this.askedAt = Date.now();
      const after = this.sequence === null ? '' : `&after=${this.sequence}`;
      const source = this.source = new EventSource( `${root}events?rates=1${after}` );
      source.onopen = () => {
         this.pause = firstPause;
         this.isHeard();
         this.onUp( this.opened );
         this.opened = true;
      };
      source.onerror = () => this.again();
      for ( const type of this.types )
         source.addEventListener( type, ( event ) => this.take( type, event ) );
   }
   take( type, event ) {
      this.isHeard();
      if ( event.lastEventId )
         this.sequence = Number( event.lastEventId );
      let data;
      try {
         data = JSON.parse( event.data );
      } catch {
         return;
      }
      if ( type === 'dropped' && Number.isFinite( data.next ) )
         this.sequence = data.next - 1;
      this.onEvent( type, data );
   }
   isHeard() {
      this.heard = Date.now();
      if ( !this.stale )
         return;
      this.stale = false;
      this.onState( null );
   }
   /** What is happening is known up to when it was last heard of. */
   isGone() {
      if ( this.stale )
         return;
      this.stale = true;
      this.onState( this.heard );
   }
   again() {
      this.source.close();
      this.isGone();
      if ( this.timer === null )
         this.timer = setTimeout( () => this.open(), this.pause * 1000 );
      this.pause = Math.min( 2 * this.pause, longestPause );
   }
   /** A line that is cut without a word stays open for ever. */
   look() {
      const now = Date.now();
      if ( now - this.heard < silence * 1000 || this.timer !== null )
         return;
      if ( now - this.askedAt > silence * 1000 ) {
         this.source.close();
         this.open();
      } else if ( now - this.askedAt > grace * 1000 )
         this.isGone();
   }
}
