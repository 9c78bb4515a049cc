// What the page makes of a line that breaks, of being out of sight, and of events that it was not told.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { hide, soon } from './browser.js';
import { rig, text } from './rig.js';

describe( 'a line that breaks', () => {
   test( 'makes what is shown stale since then; when the agent is back the page goes on where it was', async () => {
      const page = await rig.show();
      await page.locator( '.link.good' ).waitFor();
      await page.locator( 'table.events tbody tr' ).waitFor();
      await page.evaluate( () => { globalThis.same = true; } );
      await rig.fake.stop();
      const gone = Date.now();
      await soon( async () => assert.match( await text( page, '.link' ), /stale since \d\d:\d\d:\d\d/ ) );
      const said = Date.parse( `${new Date( gone ).toISOString().slice( 0, 11 )}${( await text( page, '.link' ) ).slice( -8 )}Z` );
      assert.ok( Math.abs( said - gone ) < 10000, `${said} ${gone}` );
      assert.match( await text( page, '.banner.stale' ), /does not answer/ );
      rig.fake.event( 'unit', 'u2', 'entering', 'happened meanwhile' );
      await rig.fake.start( rig.fake.port );
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
      await soon( async () => assert.match( await text( page, 'table.events' ), /happened meanwhile/ ) );
      assert.ok( rig.fake.asked.some( ( path ) => path.endsWith( 'events?rates=1&after=1' ) ), rig.fake.asked.join( '\n' ) );
      assert.equal( await page.evaluate( () => globalThis.same ), true );
      assert.equal( await page.locator( 'table.events tbody tr' ).count(), 2 );
   } );
   test( 'without a word is noticed when two heartbeats have not come', async () => {
      const page = await rig.show( '', { clock: true } );
      await page.locator( '.link.good' ).waitFor();
      rig.fake.silent = true;
      await page.clock.runFor( 25000 );
      assert.match( await text( page, '.link' ), /live/ );
      await page.clock.runFor( 15000 );
      await soon( async () => assert.match( await text( page, '.link' ), /stale since/ ) );
      rig.fake.silent = false;
      await page.clock.runFor( 70000 );
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   } );
   test( 'without a word is noticed also when the clock of the reader has been set back', async () => {
      const page = await rig.show( '', { clock: true } );
      await page.locator( '.link.good' ).waitFor();
      const now = Date.now();
      await page.clock.setSystemTime( now - 7200000 );
      rig.fake.silent = true;
      await page.clock.runFor( 45000 );
      await soon( async () => assert.match( await text( page, '.link' ), /stale since/ ) );
      const said = Date.parse( `${new Date( now ).toISOString().slice( 0, 11 )}${( await text( page, '.link' ) ).slice( -8 )}Z` );
      assert.ok( Math.abs( said - now ) < 10000, `${said} ${now}` );
   } );
   test( 'is of the clock that the reader has now, whatever is heard first when it has been set back', async () => {
      const page = await rig.show();
      await page.locator( '.link.good' ).waitFor();
      const { offset, ago } = await page.evaluate( () => {
         const { model } = globalThis.drainwatch, { now } = Date, before = model.offset;
         Date.now = () => now() - 7200000;
         model.stream.take( 'rates', { data: JSON.stringify( { time: new Date( now() ).toISOString(), interfaces: {} } ) } );
         model.stream.look();
         return { offset: model.offset - before, ago: Date.now() - model.stream.heard };
      } );
      assert.ok( Math.abs( offset - 7200 ) < 5, String( offset ) );
      assert.ok( ago < 5000, String( ago ) );
   } );
   test( 'for the stream alone leaves a page that asks again and again', async () => {
      rig.fake.streamless = true;
      const page = await rig.show();
      await soon( async () => assert.match( await text( page, '.link' ), /polling/ ) );
      await soon( async () => assert.match( await text( page, '.card' ), /entering/ ) );
      rig.fake.units[ 0 ] = { ...rig.fake.units[ 0 ], state: 'maintenance' };
      await soon( async () => assert.match( await text( page, '.card .badge' ), /maintenance/ ) );
      rig.fake.streamless = false;
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   } );
} );

describe( 'a page that nobody looks at', () => {
   const asked = () => rig.fake.asked.filter( ( path ) => path.startsWith( '/api/' ) );
   test( 'has no stream and asks for nothing; when it is looked at again it goes on where it was', async () => {
      const page = await rig.show( '#/events', { clock: true } );
      await page.locator( '.link.good' ).waitFor();
      await page.locator( 'table.events tbody tr' ).waitFor();
      assert.equal( rig.fake.streams.size, 1 );
      await hide( page, true );
      await soon( async () => assert.equal( rig.fake.streams.size, 0 ) );
      const before = asked().length;
      // More than are asked for at first.
      for ( let n = 2; n <= 302; ++n )
         rig.fake.event( 'unit', 'u2', 'stage', `number ${n}.` );
      await page.clock.runFor( 60000 );
      assert.deepEqual( asked().slice( before ), [] );
      await hide( page, false );
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
      await soon( async () => assert.equal( await page.locator( 'table.events tbody tr' ).count(), 302 ) );
      assert.ok( asked().slice( before ).includes( '/api/v1/events?rates=1&after=1' ), asked().slice( before ).join( '\n' ) );
      const all = await page.locator( 'table.events tbody tr' ).allInnerTexts();
      assert.deepEqual( all.slice( 0, -1 ).map( ( row ) => Number( /number (\d+)/.exec( row )[ 1 ] ) ),
         Array.from( { length: 301 }, ( _, i ) => 302 - i ) );
      assert.equal( await page.locator( 'tr.missed' ).count(), 0 );
   } );
   test( 'is told how many events were not kept for it', async () => {
      const page = await rig.show( '#/events' );
      await page.locator( 'table.events tbody tr' ).waitFor();
      await hide( page, true );
      for ( let n = 2; n <= 60; ++n )
         rig.fake.event( 'unit', 'u2', 'stage', `number ${n}.` );
      rig.fake.forgotten = 43;
      await hide( page, false );
      await soon( async () => assert.equal( await page.locator( 'table.events tbody tr' ).count(), 19 ) );
      assert.match( await page.locator( 'table.events tbody tr' ).nth( 17 ).innerText(), /42 events missed/ );
   } );
   test( 'is told when the agent has another log', async () => {
      for ( let n = 2; n <= 9; ++n )
         rig.fake.event( 'unit', 'u2', 'stage', `old ${n}.` );
      const page = await rig.show( '#/events' );
      await soon( async () => assert.equal( await page.locator( 'table.events tbody tr' ).count(), 9 ) );
      await hide( page, true );
      rig.fake.events = [];
      rig.fake.event( 'unit', 'u2', 'stage', 'new' );
      await hide( page, false );
      await soon( async () => assert.match( await text( page, 'table.events tbody' ), /new\s[^]*the agent has another log of events/ ) );
      assert.doesNotMatch( await text( page, 'table.events tbody' ), /old/ );
   } );
} );

test( 'what happens between the first read and the first stream is shown too', async () => {
   let answer;
   rig.fake.streamHeld = new Promise( ( resolve ) => { answer = resolve; } );
   const page = await rig.show( '#/events' );
   await page.locator( 'table.events tbody tr' ).waitFor();
   rig.fake.event( 'unit', 'u2', 'stage', 'between' );
   answer();
   await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   await soon( async () => assert.match( await text( page, 'table.events tbody' ), /between/ ) );
} );

test( 'without a stream events are asked for, those that are not known', async () => {
   rig.fake.streamless = true;
   const page = await rig.show( '#/events' );
   await soon( async () => assert.match( await text( page, '.link' ), /polling/ ) );
   await page.locator( 'table.events tbody tr' ).waitFor();
   rig.fake.event( 'unit', 'u2', 'stage', 'later' );
   await soon( async () => assert.match( await text( page, 'table.events tbody' ), /later/ ) );
   assert.ok( rig.fake.asked.includes( '/api/v1/events/recent?limit=200&after=1' ), rig.fake.asked.join( '\n' ) );
} );

test( 'a stream that goes on while reads are not answered is said to be old', async () => {
   const page = await rig.show( '', { clock: true } );
   await page.locator( '.link.good' ).waitFor();
   await page.locator( '.card' ).waitFor();
   rig.fake.readless = true;
   for ( let time = 0; time < 36; time += 4 ) {
      rig.fake.rates( {} );
      await page.clock.runFor( 4000 );
   }
   await soon( async () => assert.match( await text( page, '.link' ), /live, reads late/ ) );
   assert.match( await text( page, '.banner.late' ), /all else is as of \d\d:\d\d:\d\d UTC/ );
   rig.fake.readless = false;
   await page.clock.runFor( 20000 );
   await soon( async () => assert.doesNotMatch( await text( page, '.link' ), /late/ ) );
   await soon( async () => assert.equal( await page.locator( '.banner.late' ).isVisible(), false ) );
} );
