// What the page makes of what an agent says, in a browser.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { axe, soon } from './browser.js';
import { intf, iso, reason, record, unit } from './fake.js';
import { go, rig, text } from './rig.js';

/** Text that would do something if it were taken for a part of the page. */
const evil = '<script>globalThis.taken = 1</script><img src=x onerror="globalThis.taken = 1">&lt;b&gt;';

describe( 'the list of units', () => {
   test( 'shows a unit under way with state, stage, progress, sentence, who and why', async () => {
      const page = await rig.show();
      await soon( async () => assert.match( await text( page, '.card' ), /forced shutdown of et3 at/ ) );
      const words = await text( page, '.card' );
      for ( const part of [ 'entering', 'stage drainwatch', '1 of 3', 'et3 stalled at 310 kbit/s since 14:02', 'replace the line card',
         'by ann' ] )
         assert.ok( words.includes( part ), `${part} in: ${words}` );
      assert.equal( await page.getByRole( 'progressbar' ).getAttribute( 'aria-valuetext' ), '1 of 3 drained' );
      assert.match( await text( page, 'table.units:visible' ), /u2/ );
      await soon( async () => assert.equal( await page.locator( '.matrix li' ).count(), 3 ) );
   } );
   test( 'follows events', async () => {
      const page = await rig.show();
      await page.locator( '.card' ).waitFor();
      rig.fake.units = [ unit( 'u1', { state: 'maintenance', sentence: 'all drained' } ), unit( 'u2' ) ];
      rig.fake.event( 'unit', 'u1', 'maintenance', 'u1 is under maintenance' );
      await soon( async () => assert.match( await text( page, '.card .badge' ), /maintenance/ ) );
      await soon( async () => assert.match( await text( page, 'table.events' ), /u1 is under maintenance/ ) );
   } );
   test( 'has those under way that are too many to be looked at closely in a table of their own', async () => {
      const busy = Array.from( { length: 20 }, ( _, i ) => unit( `a${10 + i}`, { state: 'entering', interfaces: { total: 9, drained: 4 },
         by: 'ann', reason: 'new cards', with: { ticket: 'OPS-12', batch: '7' }, sentence: `4 of 9 drained, ${i}`,
         overdue: i === 18, violating: i === 19 ? [ 'et1' ] : [] } ) );
      rig.fake.units = [ ...busy, unit( 'b1' ) ];
      const page = await rig.show();
      await soon( async () => assert.equal( await page.locator( '.card' ).count(), 12 ) );
      // What somebody should look at is among those that are.
      assert.deepEqual( await page.locator( '.card h3' ).allInnerTexts(),
         [ 'a29', 'a28', ...Array.from( { length: 10 }, ( _, i ) => `a${10 + i}` ) ] );
      assert.match( await text( page, '.card .who' ), /new cards”? by ann .*ticket=OPS-12, batch=7$/ );
      const more = page.getByRole( 'region', { name: 'Under way' } ).getByRole( 'table', { name: 'and 8 more' } );
      assert.deepEqual( await more.getByRole( 'rowheader' ).allInnerTexts(), Array.from( { length: 8 }, ( _, i ) => `a${20 + i}` ) );
      assert.match( await more.locator( 'tbody tr' ).first().innerText(),
         /a20\s+▶ entering\s+4 of 9\s+4 of 9 drained, 10\s+ann\s+new cards/ );
      const normal = page.getByRole( 'region', { name: 'Normal' } ).getByRole( 'rowheader' );
      assert.deepEqual( await normal.allInnerTexts(), [ 'b1' ] );
      assert.deepEqual( await axe( page ), [] );
      rig.fake.units = [ ...busy.slice( 0, 12 ), unit( 'b1' ) ];
      rig.fake.event( 'unit', 'a29', 'removed' );
      await soon( async () => assert.equal( await page.locator( 'table.units:visible' ).count(), 1 ) );
   } );
   test( 'shows what times are set for a unit, and what is left of them', async () => {
      const at = ( seconds ) => iso( Date.now() / 1000 + seconds );
      const { times } = rig.fake.units[ 0 ];
      const set = ( changes ) => {
         rig.fake.units[ 0 ] = { ...rig.fake.units[ 0 ], ...changes };
         rig.fake.event( 'unit', 'u1', 'times' );
      };
      const page = await rig.show();
      await page.locator( '.card' ).waitFor();
      assert.equal( await page.locator( '.card .times' ).isVisible(), false );
      const later = at( 90000 );
      set( { 'times': { ...times, 'deadline': at( 600 ), 'on-overrun': 'restore', 'revert-at': later }, 'eta-seconds': 64.2,
         'deadline': at( 300 ) } );
      await soon( async () => assert.match( await text( page, '.card .times' ),
         /^expected by \d\d:\d\d:\d\d, in [45]m\d\ds\ndeadline \d\d:\d\d:\d\d, in (10|9)m\d\ds; else it goes back\ngoes back by itself/ ) );
      assert.ok( ( await text( page, '.card .times' ) ).includes( `${later.slice( 0, 19 ).replace( 'T', ' ' )}, in 1d0` ) );
      assert.match( await text( page, '.card .progress' ), /1 of 3, about 1m05s left/ );
      set( { times: { ...times, 'deadline': at( -60 ), 'on-overrun': 'keep', 'overrun': at( -60 ), 'doubt': 'behind' }, deadline: null } );
      await soon( async () => assert.match( await text( page, '.card .times' ),
         /^deadline missed: \d\d:\d\d:\d\d; it goes on\nwall time was behind when the machine started/ ) );
      assert.match( await text( page, '.card .badge' ), /entering, overdue/ );
      assert.deepEqual( await axe( page ), [] );
      await go( page, 'unit/u1' );
      await soon( async () => assert.match( await text( page, '.summary .times' ), /deadline missed/ ) );
   } );
   test( 'tells the day of what has happened long ago', async () => {
      const { now } = rig.fake;
      rig.fake.event( 'unit', 'u1', 'normal', 'u1 is normal', { time: iso( now - 3 * 86400 ) } );
      const page = await rig.show();
      const when = async ( words ) => page.locator( '.events tr', { hasText: words } ).locator( 'time' ).innerText();
      const day = iso( now - 3 * 86400 ).slice( 0, 19 ).replace( 'T', ' ' );
      await soon( async () => assert.equal( await when( 'u1 is normal' ), day ) );
      assert.match( await when( 'u1 is entering' ), /^\d\d:\d\d:\d\d$/ );
   } );
   test( 'says aloud what changes the state of a unit, and nothing else', async () => {
      const page = await rig.show();
      await page.locator( '.card' ).waitFor();
      rig.fake.rates( { et2: [ 1, 1 ] } );
      rig.fake.event( 'interface', 'et2', 'timing', 'et2 is quiet' );
      await soon( async () => assert.match( await text( page, 'table.events' ), /et2 is quiet/ ) );
      const spoken = page.locator( '[aria-live=polite]' );
      assert.equal( await spoken.textContent(), '' );
      rig.fake.units[ 0 ] = { ...rig.fake.units[ 0 ], state: 'maintenance' };
      rig.fake.event( 'unit', 'u1', 'maintenance' );
      await soon( async () => assert.equal( await spoken.textContent(), 'u1: maintenance. ' ) );
   } );
} );

describe( 'a unit', () => {
   test( 'shows each interface with its reason, its rates against the threshold, and a curve that is told in words', async () => {
      const page = await rig.show( '#/unit/u1' );
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
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      await soon( async () => {
         rig.fake.rates( { et2: [ 123000, 45600 ] } );
         assert.match( await page.locator( '.panel', { hasText: 'et2' } ).innerText(), /in 123 kbit\/s[^]*out 45.6 kbit\/s/ );
      } );
   } );
   test( 'has what happens to an interface marked on its curve, and spikes above all', async () => {
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 3 ) );
      rig.fake.event( 'interface', 'et2', 'reason', 'et2 is quiet' );
      rig.fake.event( 'interface', 'et2', 'spike', 'et2 carries traffic' );
      rig.fake.event( 'interface', 'et2', 'spike-end', 'et2 carries none' );
      const caption = page.locator( '.panel', { hasText: 'et2' } ).locator( 'figcaption' );
      await soon( async () => assert.match( await caption.textContent(), /et2 is quiet at [^]*et2 carries traffic at / ) );
      assert.match( await page.locator( 'table.events tr.alarm' ).allInnerTexts().then( ( all ) => all.join() ),
         /^[^,]*! et2 carries traffic$/ );
   } );
   test( 'has marked on each curve what happens to more interfaces at once than an event names', async () => {
      const names = Array.from( { length: 201 }, ( _, i ) => `et${i + 1}` );
      const at = iso( Date.now() / 1000 - 20 );
      rig.fake.interfaces = names.map( ( name, i ) => intf( name, i === 200 ? { state: 'enter-maint', reason: reason( 'stalled' ) }
         : { 'state': 'under-maint', 'state-time': at, 'reason': reason( 'drained', { since: at } ) } ) );
      rig.fake.event( 'interface', '', 'reason', 'et1 has drained; likewise 199 more interfaces',
         { time: at, reason: 'drained', count: 200, interfaces: names.slice( 0, 100 ) } );
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.equal( await page.locator( '.panel' ).count(), 201 ) );
      const caption = async ( number ) => {
         const panel = page.locator( '.panel' ).nth( number - 1 );
         await panel.scrollIntoViewIfNeeded();
         await panel.locator( 'canvas' ).waitFor();
         return panel.locator( 'figcaption' ).textContent();
      };
      const time = at.slice( 11, 19 );
      for ( const number of [ 50, 150 ] )
         await soon( async () => assert.match( await caption( number ), new RegExp( `\\. et1 has drained[^.]* at ${time}\\.$` ) ) );
      await soon( async () => assert.match( await caption( 201 ), /\. stalled at / ) );
      assert.doesNotMatch( await caption( 201 ), /drained/ );
      assert.match( await text( page, 'table.events' ), /interface et1 and 199 others/ );
      for ( const number of [ 50, 150 ] ) {
         await go( page, `interface/et${number}` );
         await soon( async () => assert.match( await text( page, 'table.events' ), new RegExp( `interface et${number} and 199 others` ) ) );
      }
      await go( page, 'interface/et201' );
      await soon( async () => assert.match( await text( page, '.panel .badge' ), /stalled/ ) );
      assert.equal( await page.locator( 'table.events' ).isVisible(), false );
   } );
   test( 'has marked on a curve what its interface tells and no event does', async () => {
      const page = await rig.show( '#/unit/u1' );
      const caption = page.locator( '.panel', { hasText: 'et2' } ).locator( 'figcaption' );
      const since = ( seconds ) => ( { since: iso( Date.now() / 1000 - seconds ) } );
      await soon( async () => assert.match( await caption.textContent(), /\. above threshold at \d\d:\d\d:\d\d\.$/ ) );
      rig.fake.interfaces[ 1 ] = intf( 'et2', { state: 'enter-maint', reason: reason( 'timing', since( 3 ) ) } );
      await soon( async () => assert.match( await caption.textContent(), /above threshold at [^,]*, timing at [^,]*\.$/ ) );
      // What an event tells as well is marked once.
      rig.fake.interfaces[ 1 ] = intf( 'et2', { state: 'under-maint', reason: reason( 'drained', since( 1 ) ) } );
      rig.fake.event( 'interface', 'et2', 'reason', 'et2 is drained', { reason: 'drained' } );
      await soon( async () => assert.match( await caption.textContent(),
         /above threshold at [^,]*, timing at [^,]*, et2 is drained at [^,]*\.$/ ) );
   } );
   test( 'names what violates', async () => {
      rig.fake.units[ 0 ] = { ...rig.fake.units[ 0 ], state: 'maintenance', violating: [ 'et1' ], 'total-violations': 4 };
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.match( await text( page, '.violations' ), /et1[^]*4 samples above the threshold/ ) );
   } );
   test( 'that does not exist is said to be missing', async () => {
      const page = await rig.show( '#/unit/no%20such' );
      await soon( async () => assert.match( await text( page, 'main' ), /There is no unit no such/ ) );
   } );
} );

test( 'a past maintenance shows its course, and each interface with what happened to it', async () => {
   const page = await rig.show( '#/history' );
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
   rig.fake.maintenances.push( { ...record( 9, 'u1' ),
      times: { 'deadline': iso( 1e9 + 60 ), 'on-overrun': 'keep', 'overrun': iso( 1e9 + 61 ), 'revert-at': iso( 1e9 + 4000 ) },
      with: { ticket: 'OPS-12' }, overridden: [ 'two are out already', 'nobody knows' ] } );
   await go( page, 'history/9' );
   await soon( async () => assert.match( await text( page, '.course' ),
      /enter by bob[^]*deadline missed after 1m01s[^]*under maintenance after 1m40s/ ) );
   assert.match( await text( page, '.facts' ), /Forced although\s+two are out already; nobody knows\s+With\s+ticket=OPS-12\s/ );
   assert.match( await text( page, '.facts' ), /Deadline\s+2001-09-09 01:47:40[^]*To go back\s+2001-09-09 02:53:20/ );
   await go( page, 'history/8' );
   await soon( async () => assert.match( await text( page, 'main' ), /There is no maintenance 8/ ) );
} );

test( 'no text becomes a part of the page', async () => {
   rig.fake.units = [ unit( evil, { state: 'entering', stage: evil, reason: evil, by: evil, with: { [ evil ]: evil },
      sentence: evil, groups: [ evil ],
      violating: [ evil ],
      interfaces: { total: 1, drained: 0 }, stages: [ { name: evil, state: 'failed', since: null, text: evil, failure: evil } ] } ),
      unit( 'u2', { sentence: evil, groups: [ evil ] } ) ];
   rig.fake.interfaces = [ intf( evil, { units: [ evil ], kind: evil, profile: evil, drift: evil,
      reason: reason( 'stalled', { text: evil } ),
      'link-state': evil } ) ];
   rig.fake.events = [];
   for ( const type of [ 'unit', 'interface', 'agent' ] )
      rig.fake.event( type, evil, evil, evil );
   rig.fake.maintenances = [ record( 7, evil, evil ) ];
   rig.fake.problems = [ { what: evil, since: iso( 1 ), text: evil } ];
   const page = await rig.show();
   const name = encodeURIComponent( evil );
   for ( const [ path, selector ] of [ [ '', '.card' ], [ `unit/${name}`, '.panel' ], [ `interface/${name}`, '.panel' ], [ 'events', 'td' ],
      [ 'history', 'td' ], [ 'history/7', '.panel' ] ] ) {
      await go( page, path );
      await soon( async () => assert.ok( ( await text( page, selector ) ).length > 0 ) );
      await soon( async () => assert.ok( ( await page.locator( 'main' ).innerText() ).includes( evil ), path ) );
      assert.deepEqual( await page.evaluate( () => [ globalThis.taken, document.scripts.length, document.images.length ] ),
         [ undefined, 1, 0 ], path );
   }
} );

test( 'of two hundred curves only those in sight are alive, and each is drawn once a frame', async () => {
   rig.fake.interfaces = Array.from( { length: 200 }, ( _, i ) => intf( `et${i + 1}`,
      { state: 'enter-maint', reason: reason( 'above-threshold' ) } ) );
   rig.fake.units[ 0 ].interfaces.total = 200;
   const page = await rig.show( '#/unit/u1' );
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
   rig.fake.units[ 0 ].violating = [ 'et3' ];
   rig.fake.event( 'interface', 'et3', 'spike', 'et3 carries traffic' );
   rig.fake.problems = [ { what: 'store', since: iso( 1 ), text: 'the disk is full' } ];
   for ( const colorScheme of [ 'light', 'dark' ] ) {
      const page = await rig.show( '', { colorScheme } );
      for ( const [ path, selector ] of [ [ '', '.card' ], [ 'unit/u1', '.panel canvas' ], [ 'interface/et2', '.panel canvas' ],
         [ 'events', 'td' ], [ 'history', 'td' ], [ 'history/7', '.panel canvas' ] ] ) {
         await go( page, path );
         await page.locator( selector ).first().waitFor();
         assert.deepEqual( await axe( page ), [], `${path} ${colorScheme}` );
      }
   }
} );

test( 'the colours are those that the reader likes', async () => {
   const ground = async ( colorScheme ) => {
      const page = await rig.show( '', { colorScheme } );
      await page.locator( '.card' ).waitFor();
      return page.evaluate( () => getComputedStyle( document.documentElement ).backgroundColor.match( /\d+/g ).map( Number ) );
   };
   assert.ok( ( await ground( 'light' ) ).every( ( value ) => value > 200 ) );
   assert.ok( ( await ground( 'dark' ) ).every( ( value ) => value < 60 ) );
} );

test( 'the keyboard reaches the content and shows where it is', async () => {
   const page = await rig.show();
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
   const page = await rig.show( '', { viewport: { width: 360, height: 740 } } );
   for ( const [ path, selector ] of [ [ '', '.card' ], [ 'unit/u1', '.panel canvas' ], [ 'interface/et2', '.panel canvas' ],
      [ 'events', 'td' ], [ 'history', 'td' ], [ 'history/7', '.panel canvas' ] ] ) {
      await go( page, path );
      await page.locator( selector ).first().waitFor();
      assert.ok( await page.evaluate( () => document.documentElement.scrollWidth <= innerWidth ), path );
   }
} );
