// What the page makes of what an agent says, in a browser.

import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';
import { Fake, intf, iso, reason, record, unit } from './fake.js';
import { axe, launch, open, soon } from './browser.js';

/** Text that would do something if it were taken for a part of the page. */
const evil = '<script>globalThis.taken = 1</script><img src=x onerror="globalThis.taken = 1">&lt;b&gt;';

let browser, fake, opened;
const show = async ( path = '', options = {} ) => {
   const page = await open( browser, fake.address + path, options );
   opened.push( page );
   return page.page;
};
const drain = ( from ) => Array.from( { length: 60 }, ( _, i ) => from * 0.5 ** ( i / 4 ) );

before( async () => { browser = await launch(); } );
after( async () => { await browser.close(); } );
beforeEach( async () => {
   opened = [];
   fake = new Fake();
   fake.units = [
      unit( 'u1', { state: 'entering', stage: 'drainwatch', since: iso( Date.now() / 1000 - 60 ), reason: 'replace the line card',
         by: 'ann',
         interfaces: { total: 3, drained: 1 }, rates: { 'in-bps': 812000, 'out-bps': 1000 },
         stages: [ { name: 'drainwatch', state: 'running', since: iso( 0 ), text: 'runs', failure: null } ],
         sentence: '1 of 3 drained; et2 812 kbit/s, about 40 s; et3 stalled at 310 kbit/s since 14:02' } ),
      unit( 'u2' ),
   ];
   fake.interfaces = [
      intf( 'et1', { state: 'under-maint', 'in-bps': 0, 'out-bps': 0, reason: reason( 'drained', { text: 'drained' } ) } ),
      intf( 'et2', { state: 'enter-maint', 'in-bps': 812000, 'out-bps': 1000, reason: reason( 'above-threshold' ) } ),
      intf( 'et3', { state: 'enter-maint', 'in-bps': 310000, 'out-bps': 1000,
         reason: reason( 'stalled', { text: 'stalled at 310 kbit/s since 14:02', 'shutdown-at': iso( Date.now() / 1000 + 90 ) } ) } ),
   ];
   fake.samples = () => ( { in: drain( 4e8 ), out: drain( 1e8 ) } );
   fake.event( 'unit', 'u1', 'entering', 'u1 is entering maintenance' );
   fake.maintenances = [ record( 7, 'u1' ) ];
   await fake.start();
} );
afterEach( async () => {
   for ( const page of opened )
      await page.close();
   await fake.stop().catch( () => {} );
   assert.deepEqual( opened.flatMap( ( page ) => page.wrong ), [] );
} );

const text = ( page, selector ) => page.locator( selector ).first().innerText();

describe( 'the list of units', () => {
   test( 'shows a unit under way with state, stage, progress, sentence, who and why', async () => {
      const page = await show();
      await soon( async () => assert.match( await text( page, '.card' ), /forced shutdown of et3 at/ ) );
      const words = await text( page, '.card' );
      for ( const part of [ 'entering', 'stage drainwatch', '1 of 3', 'et3 stalled at 310 kbit/s since 14:02', 'replace the line card',
         'by ann' ] )
         assert.ok( words.includes( part ), `${part} in: ${words}` );
      assert.equal( await page.getByRole( 'progressbar' ).getAttribute( 'aria-valuetext' ), '1 of 3 drained' );
      assert.match( await text( page, 'table.units' ), /u2/ );
      await soon( async () => assert.equal( await page.locator( '.matrix li' ).count(), 3 ) );
   } );
   test( 'follows events', async () => {
      const page = await show();
      await page.locator( '.card' ).waitFor();
      fake.units = [ unit( 'u1', { state: 'maintenance', sentence: 'all drained' } ), unit( 'u2' ) ];
      fake.event( 'unit', 'u1', 'maintenance', 'u1 is under maintenance' );
      await soon( async () => assert.match( await text( page, '.card .badge' ), /maintenance/ ) );
      await soon( async () => assert.match( await text( page, 'table.events' ), /u1 is under maintenance/ ) );
   } );
   test( 'says aloud what changes the state of a unit, and nothing else', async () => {
      const page = await show();
      await page.locator( '.card' ).waitFor();
      fake.rates( { et2: [ 1, 1 ] } );
      fake.event( 'interface', 'et2', 'timing', 'et2 is quiet' );
      await soon( async () => assert.match( await text( page, 'table.events' ), /et2 is quiet/ ) );
      const spoken = page.locator( '[aria-live=polite]' );
      assert.equal( await spoken.textContent(), '' );
      fake.units[ 0 ] = { ...fake.units[ 0 ], state: 'maintenance' };
      fake.event( 'unit', 'u1', 'maintenance' );
      await soon( async () => assert.equal( await spoken.textContent(), 'u1: maintenance. ' ) );
   } );
} );

describe( 'a unit', () => {
   test( 'shows each interface with its reason, its rates against the threshold, and a curve that is told in words', async () => {
      const page = await show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      const panel = page.locator( '.panel', { hasText: 'et3' } );
      await soon( async () => assert.equal( await panel.locator( 'canvas' ).count(), 1 ) );
      const words = await panel.innerText();
      for ( const part of [ 'stalled', 'stalled at 310 kbit/s since 14:02', '310 kbit/s', 'threshold 100 kbit/s', 'forced shutdown at' ] )
         assert.ok( words.includes( part ), `${part} in: ${words}` );
      await soon( async () => assert.match( await panel.locator( 'figcaption' ).textContent(),
         /^et3, .*in: now .*, highest .* at \d\d:\d\d:\d\d.*threshold 100 kbit\/s/ ) );
      await soon( async () => assert.match( await text( page, 'table.records' ),
         /7\s+2001-09-09 01:46:40\s+3m10s\s+✓ completed\s+1\s+bob\s+last year/ ) );
   } );
   test( 'follows the rates', async () => {
      const page = await show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      await soon( async () => {
         fake.rates( { et2: [ 123000, 45600 ] } );
         assert.match( await page.locator( '.panel', { hasText: 'et2' } ).innerText(), /in 123 kbit\/s[^]*out 45.6 kbit\/s/ );
      } );
   } );
   test( 'has what happens to an interface marked on its curve, and spikes above all', async () => {
      const page = await show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      fake.event( 'interface', 'et2', 'reason', 'et2 is quiet' );
      fake.event( 'interface', 'et2', 'spike', 'et2 carries traffic' );
      fake.event( 'interface', 'et2', 'spike-end', 'et2 carries none' );
      const caption = page.locator( '.panel', { hasText: 'et2' } ).locator( 'figcaption' );
      await soon( async () => assert.match( await caption.textContent(), /et2 is quiet at [^]*et2 carries traffic at / ) );
      assert.match( await page.locator( 'table.events tr.alarm' ).allInnerTexts().then( ( all ) => all.join() ),
         /^[^,]*! et2 carries traffic$/ );
   } );
   test( 'names what violates', async () => {
      fake.units[ 0 ] = { ...fake.units[ 0 ], state: 'maintenance', violating: [ 'et1' ], 'total-violations': 4 };
      const page = await show( '#/unit/u1' );
      await soon( async () => assert.match( await text( page, '.violations' ), /et1[^]*4 samples above the threshold/ ) );
   } );
   test( 'that does not exist is said to be missing', async () => {
      const page = await show( '#/unit/no%20such' );
      await soon( async () => assert.match( await text( page, 'main' ), /There is no unit no such/ ) );
   } );
} );

describe( 'a line that breaks', () => {
   test( 'makes what is shown stale since then; when the agent is back the page goes on where it was', async () => {
      const page = await show();
      await page.locator( '.link.good' ).waitFor();
      await page.evaluate( () => { globalThis.same = true; } );
      await fake.stop();
      const gone = Date.now();
      await soon( async () => assert.match( await text( page, '.link' ), /stale since \d\d:\d\d:\d\d/ ) );
      const said = Date.parse( `${new Date( gone ).toISOString().slice( 0, 11 )}${( await text( page, '.link' ) ).slice( -8 )}Z` );
      assert.ok( Math.abs( said - gone ) < 10000, `${said} ${gone}` );
      assert.match( await text( page, '.banner.stale' ), /does not answer/ );
      fake.event( 'unit', 'u2', 'entering', 'happened meanwhile' );
      await fake.start( fake.port );
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
      await soon( async () => assert.match( await text( page, 'table.events' ), /happened meanwhile/ ) );
      assert.ok( fake.asked.some( ( path ) => path.endsWith( 'events?rates=1&after=1' ) ), fake.asked.join( '\n' ) );
      assert.equal( await page.evaluate( () => globalThis.same ), true );
      assert.equal( await page.locator( 'table.events tbody tr' ).count(), 2 );
   } );
   test( 'without a word is noticed when two heartbeats have not come', async () => {
      const { page } = opened[ opened.push( await open( browser, fake.address, {},
         async ( page ) => { await page.clock.install(); } ) ) - 1 ];
      await page.locator( '.link.good' ).waitFor();
      fake.silent = true;
      await page.clock.runFor( 25000 );
      assert.match( await text( page, '.link' ), /live/ );
      await page.clock.runFor( 15000 );
      await soon( async () => assert.match( await text( page, '.link' ), /stale since/ ) );
      fake.silent = false;
      await page.clock.runFor( 70000 );
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   } );
   test( 'for the stream alone leaves a page that asks again and again', async () => {
      fake.streamless = true;
      const page = await show();
      await soon( async () => assert.match( await text( page, '.link' ), /polling/ ) );
      await soon( async () => assert.match( await text( page, '.card' ), /entering/ ) );
      fake.units[ 0 ] = { ...fake.units[ 0 ], state: 'maintenance' };
      await soon( async () => assert.match( await text( page, '.card .badge' ), /maintenance/ ) );
      fake.streamless = false;
      await soon( async () => assert.match( await text( page, '.link' ), /live/ ) );
   } );
} );

test( 'a past maintenance shows its course, and each interface with what happened to it', async () => {
   const page = await show( '#/history' );
   await page.locator( 'main table a', { hasText: /^7$/ } ).click();
   await soon( async () => assert.equal( await text( page, 'h1' ), 'Maintenance 7 of u1' ) );
   assert.match( await text( page, '.course' ),
      /01:46:40 enter by bob “?last year[^]*under maintenance after 1m40s[^]*exit by eve[^]*completed after 3m10s/ );
   assert.match( await text( page, '.facts' ), /1 of 1 interfaces[^]*Forced shutdowns\s+1[^]*Spikes\s+1/ );
   const panel = page.locator( '.panel' );
   await soon( async () => assert.equal( await panel.locator( 'canvas' ).count(), 1 ) );
   await panel.locator( 'summary' ).click();
   const words = await panel.innerText();
   for ( const part of [ 'et1', 'drained after 40s', 'above threshold at 400 Mbit/s', 'spike of 50 Mbit/s for 5s', 'shut, forced', 'raised',
      'fast: below 100 kbit/s for 10 s' ] )
      assert.ok( words.includes( part ), `${part} in: ${words}` );
   await page.evaluate( () => { location.hash = '#/history/8'; } );
   await soon( async () => assert.match( await text( page, 'main' ), /There is no maintenance 8/ ) );
} );

test( 'no text becomes a part of the page', async () => {
   fake.units = [ unit( evil, { state: 'entering', stage: evil, reason: evil, by: evil, sentence: evil, groups: [ evil ],
      violating: [ evil ],
      interfaces: { total: 1, drained: 0 }, stages: [ { name: evil, state: 'failed', since: null, text: evil, failure: evil } ] } ),
      unit( 'u2', { sentence: evil, groups: [ evil ] } ) ];
   fake.interfaces = [ intf( evil, { units: [ evil ], kind: evil, profile: evil, drift: evil, reason: reason( 'stalled', { text: evil } ),
      'link-state': evil } ) ];
   fake.events = [];
   for ( const type of [ 'unit', 'interface', 'agent' ] )
      fake.event( type, evil, evil, evil );
   fake.maintenances = [ record( 7, evil, evil ) ];
   fake.problems = [ { what: evil, since: iso( 1 ), text: evil } ];
   const page = await show();
   const name = encodeURIComponent( evil );
   for ( const [ path, selector ] of [ [ '', '.card' ], [ `unit/${name}`, '.panel' ], [ `interface/${name}`, '.panel' ], [ 'events', 'td' ],
      [ 'history', 'td' ], [ 'history/7', '.panel' ] ] ) {
      await page.evaluate( ( hash ) => { location.hash = hash; }, `#/${path}` );
      await soon( async () => assert.ok( ( await text( page, selector ) ).length > 0 ) );
      await soon( async () => assert.ok( ( await page.locator( 'main' ).innerText() ).includes( evil ), path ) );
      assert.deepEqual( await page.evaluate( () => [ globalThis.taken, document.scripts.length, document.images.length ] ),
         [ undefined, 1, 0 ], path );
   }
} );

test( 'of two hundred curves only those in sight are alive, and each is drawn once a frame', async () => {
   fake.interfaces = Array.from( { length: 200 }, ( _, i ) => intf( `et${i + 1}`,
      { state: 'enter-maint', reason: reason( 'above-threshold' ) } ) );
   fake.units[ 0 ].interfaces.total = 200;
   const page = await show( '#/unit/u1' );
   await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 200 ) );
   await soon( async () => assert.ok( await page.locator( '.panel canvas' ).count() > 0 ) );
   const alive = () => page.locator( 'canvas' ).count();
   assert.ok( await alive() < 40, String( await alive() ) );
   // Whatever comes within a frame is drawn once in it, and nothing that is out of sight.
   const result = await page.evaluate( async () => {
      const frame = () => new Promise( requestAnimationFrame );
      const { statistics, model } = globalThis.drainwatch;
      await frame();
      await frame();
      const drawn = statistics.drawn;
      for ( let n = 1; n <= 50; ++n )
         model.take( 'rates', { time: new Date( Date.now() + n ).toISOString(),
            interfaces: Object.fromEntries( Array.from( { length: 200 }, ( _, i ) => [ `et${i + 1}`, [ n, n ] ] ) ) } );
      await frame();
      await frame();
      return { drawn: statistics.drawn - drawn, alive: document.querySelectorAll( 'canvas' ).length };
   } );
   assert.ok( result.drawn >= 1 && result.drawn <= 3 * result.alive, JSON.stringify( result ) );
   await page.locator( '.panel' ).last().scrollIntoViewIfNeeded();
   await soon( async () => assert.equal( await page.locator( '.panel' ).last().locator( 'canvas' ).count(), 1 ) );
   await soon( async () => assert.equal( await page.locator( '.panel' ).first().locator( 'canvas' ).count(), 0 ) );
} );

test( 'everything can be read without eyes, in dark and in light', async () => {
   fake.units[ 0 ].violating = [ 'et3' ];
   fake.event( 'interface', 'et3', 'spike', 'et3 carries traffic' );
   fake.problems = [ { what: 'store', since: iso( 1 ), text: 'the disk is full' } ];
   for ( const colorScheme of [ 'light', 'dark' ] ) {
      const page = await show( '', { colorScheme } );
      for ( const [ path, selector ] of [ [ '', '.card' ], [ 'unit/u1', '.panel canvas' ], [ 'interface/et2', '.panel canvas' ],
         [ 'events', 'td' ], [ 'history', 'td' ], [ 'history/7', '.panel canvas' ] ] ) {
         await page.evaluate( ( hash ) => { location.hash = hash; }, `#/${path}` );
         await page.locator( selector ).first().waitFor();
         assert.deepEqual( await axe( page ), [], `${path} ${colorScheme}` );
      }
   }
} );

test( 'the colours are those that the reader likes', async () => {
   const ground = async ( colorScheme ) => {
      const page = await show( '', { colorScheme } );
      await page.locator( '.card' ).waitFor();
      return page.evaluate( () => getComputedStyle( document.documentElement ).backgroundColor.match( /\d+/g ).map( Number ) );
   };
   assert.ok( ( await ground( 'light' ) ).every( ( value ) => value > 200 ) );
   assert.ok( ( await ground( 'dark' ) ).every( ( value ) => value < 60 ) );
} );

test( 'the keyboard reaches the content and shows where it is', async () => {
   const page = await show();
   await page.locator( '.card' ).waitFor();
   await page.keyboard.press( 'Tab' );
   assert.equal( await page.evaluate( () => document.activeElement.textContent ), 'To the content' );
   await page.keyboard.press( 'Enter' );
   await page.keyboard.press( 'Tab' );
   assert.equal( await page.evaluate( () => document.activeElement.textContent ), 'u1' );
   assert.notEqual( await page.evaluate( () => getComputedStyle( document.activeElement ).outlineStyle ), 'none' );
   await page.keyboard.press( 'Enter' );
   await soon( async () => assert.equal( await page.evaluate( () => location.hash ), '#/unit/u1' ) );
   await soon( async () => assert.equal( await page.title(), 'u1 · drainwatch' ) );
} );

test( 'a phone shows it without scrolling sideways', async () => {
   const page = await show( '', { viewport: { width: 360, height: 740 } } );
   for ( const [ path, selector ] of [ [ '', '.card' ], [ 'unit/u1', '.panel canvas' ], [ 'interface/et2', '.panel canvas' ],
      [ 'events', 'td' ], [ 'history', 'td' ], [ 'history/7', '.panel canvas' ] ] ) {
      await page.evaluate( ( hash ) => { location.hash = hash; }, `#/${path}` );
      await page.locator( selector ).first().waitFor();
      assert.ok( await page.evaluate( () => document.documentElement.scrollWidth <= innerWidth ), path );
   }
} );
