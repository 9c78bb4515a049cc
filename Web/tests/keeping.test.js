// What stays as the page goes on: curves of units of any size, focus, open details; and what does not.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { soon } from './browser.js';
import { intf, iso, record, unit } from './fake.js';
import { go, rig, text } from './rig.js';

describe( 'a unit of any size', () => {
   const many = 1500;
   test( 'has its curves, those in sight first, and no answer is too long', async () => {
      rig.fake.interfaces = Array.from( { length: many }, ( _, i ) => intf( `et${i + 1}`, { 'in-bps': 1, 'out-bps': 1 } ) );
      rig.fake.samples = () => ( { in: Array( 120 ).fill( 1e6 ), out: Array( 120 ).fill( 1e3 ) } );
      let answer;
      rig.fake.held = new Promise( ( resolve ) => { answer = resolve; } );
      const page = await rig.show( '#/unit/u1' );
      const caption = ( panel ) => panel.locator( 'figcaption' ).textContent();
      const last = page.locator( '.panel' ).nth( many - 1 );
      await last.waitFor( { state: 'attached' } );
      await soon( async () => {
         await last.scrollIntoViewIfNeeded();
         assert.ok( await page.evaluate( ( name ) => globalThis.drainwatch.model.inSight.has( name ), `et${many}` ) );
      } );
      answer();
      await soon( async () => assert.match( await caption( last ), /in: now 1 Mbit\/s/ ) );
      await page.locator( '.seen' ).scrollIntoViewIfNeeded();
      await soon( async () => assert.match( await caption( page.locator( '.seen' ) ), /in: now 1.5 Gbit\/s, highest 1.5 Gbit\/s/ ), 60000 );
      const lists = rig.fake.asked.filter( ( path ) => path.includes( '/samples' ) )
                       .map( ( path ) => new URL( path, rig.fake.address ).searchParams.getAll( 'interface' ) );
      assert.equal( new Set( lists.flat() ).size, many );
      assert.ok( lists[ 1 ].includes( `et${many}` ), lists[ 1 ].join() );
   } );
   test( 'keeps its curves when one of its interfaces has gone meanwhile', async () => {
      const { samples } = rig.fake;
      rig.fake.samples = ( name ) => ( name === 'et2' ? undefined : samples() );
      const page = await rig.show( '#/unit/u1' );
      const caption = ( name ) => page.locator( '.panel', { hasText: name } ).locator( 'figcaption' ).textContent();
      await soon( async () => assert.match( await caption( 'et1' ), /highest 400 Mbit/ ) );
      await soon( async () => assert.match( await caption( 'et3' ), /highest 400 Mbit/ ) );
   } );
   test( 'gets its curves when an agent that was busy has time again', async () => {
      rig.fake.refuse = ( path ) => ( path.startsWith( 'samples' ) ? 503 : null );
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.match( await text( page, '.banner.problems' ), /no curves/ ) );
      rig.fake.refuse = () => null;
      rig.fake.event( 'unit', 'u2', 'stage', 'later' );
      const panel = page.locator( '.panel', { hasText: 'et1' } );
      await soon( async () => assert.match( await panel.locator( 'figcaption' ).textContent(), /highest 400 Mbit/ ) );
   } );
   test( 'is no reason to know nothing of the others when it is refused', async () => {
      rig.fake.units = [ rig.fake.units[ 0 ], unit( 'u2', { state: 'entering' } ) ];
      rig.fake.interfaces.push( intf( 'et9', { units: [ 'u2' ] } ) );
      rig.fake.refuse = ( path ) => ( path === 'interfaces?unit=u1' ? 500 : null );
      const page = await rig.show();
      await soon( async () => assert.match( await page.locator( '.card', { hasText: 'u2' } ).innerText(), /et9/ ) );
      await soon( async () => assert.match( await text( page, '.banner.problems' ), /u1: there is nothing here/ ) );
      rig.fake.refuse = () => null;
      await soon( async () => assert.match( await page.locator( '.card', { hasText: 'u1' } ).innerText(), /et2/ ) );
      await soon( async () => assert.equal( await page.locator( '.banner.problems' ).isVisible(), false ) );
   } );
} );

describe( 'a curve', () => {
   const points = ( page, name ) => page.evaluate( ( of ) => {
      const { times, ins } = globalThis.drainwatch.model.series.get( of );
      return times.map( ( time, i ) => [ time, ins[ i ] ] );
   }, name );
   test( 'ends where its interface is not known, and goes on when it is again', async () => {
      const page = await rig.show( '#/unit/u1' );
      await page.locator( '.panel canvas' ).first().waitFor();
      rig.fake.rates( { et1: [ 1, 1 ], et2: [ 123000, 45600 ] } );
      await soon( async () => assert.equal( ( await points( page, 'et2' ) ).at( -1 )[ 1 ], 123000 ) );
      rig.fake.rates( { et1: [ 2, 2 ] } );
      await soon( async () => assert.equal( ( await points( page, 'et2' ) ).at( -1 )[ 1 ], null ) );
      await soon( async () => assert.match( await page.locator( '.panel', { hasText: 'et2' } ).innerText(), /in –/ ) );
      rig.fake.rates( { et2: [ 5, 5 ] } );
      await soon( async () => assert.equal( ( await points( page, 'et2' ) ).at( -1 )[ 1 ], 5 ) );
      assert.deepEqual( ( await points( page, 'et2' ) ).slice( -3 ).map( ( [ , rate ] ) => rate ), [ 123000, null, 5 ] );
   } );
   test( 'of an interface with any name is its own', async () => {
      const names = [ 'constructor', '__proto__', 'toString' ];
      rig.fake.interfaces = names.map( ( name ) => intf( name ) );
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.match( await page.locator( 'figcaption' ).allTextContents().then( ( all ) => all.join() ),
         /constructor,[^]*highest 400 Mbit[^]*toString,[^]*highest 400 Mbit/ ) );
      rig.fake.rates( Object.fromEntries( [ [ '__proto__', [ 7, 7 ] ] ] ) );
      await soon( async () => assert.equal( ( await points( page, '__proto__' ) ).at( -1 )[ 1 ], 7 ) );
      for ( const name of [ 'constructor', 'toString' ] )
         assert.equal( ( await points( page, name ) ).at( -1 )[ 1 ], null );
      await go( page, 'interface/constructor' );
      await soon( async () => assert.equal( await page.locator( 'figure canvas' ).count(), 2 ) );
   } );
   test( 'is not joined over a gap; what the agent has kept of that time is asked for', async () => {
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.ok( ( await points( page, 'et2' ) ).length > 50 ) );
      rig.fake.samples = () => null;
      const later = Date.now() / 1000 + 60;
      rig.fake.say( 'rates', { time: iso( later ), interfaces: { et2: [ 9, 9 ] } } );
      await soon( async () => assert.deepEqual( ( await points( page, 'et2' ) ).slice( -2 ).map( ( [ , rate ] ) => rate ), [ null, 9 ] ) );
      const last = () => Number( /last=(\d+)/.exec( rig.fake.asked.findLast( ( path ) => path.includes( '/samples' ) ) )[ 1 ] );
      await soon( async () => assert.ok( last() >= 60 && last() < 120, String( last() ) ) );
   } );
   test( 'goes on when the clock of the agent is set back, with what it has kept in its new time', async () => {
      const page = await rig.show( '#/unit/u1' );
      await soon( async () => assert.ok( ( await points( page, 'et2' ) ).length > 50 ) );
      await page.locator( '.link.good' ).waitFor();
      const before = rig.fake.now;
      rig.fake.ahead = -3600;
      rig.fake.rates( { et1: [ 1e3, 1e3 ], et2: [ 2e3, 2e3 ], et3: [ 3e3, 3e3 ] } );
      const kept = async () => {
         const all = await points( page, 'et2' );
         return all.length > 50 && all.at( -1 )[ 0 ] < before - 3500;
      };
      await soon( async () => assert.ok( await kept() ) );
      rig.fake.ahead += 7;
      rig.fake.rates( { et1: [ 1e4, 1e4 ], et2: [ 2e4, 2e4 ], et3: [ 3e4, 3e4 ] } );
      await soon( async () => assert.equal( ( await points( page, 'et2' ) ).at( -1 )[ 1 ], 2e4 ) );
      for ( const name of [ 'et1', 'et2', 'et3' ] )
         for ( const [ time ] of await points( page, name ) )
            assert.ok( time < before - 3500, `${name} ${before - time}` );
      const sum = page.locator( '.seen' );
      await soon( async () => assert.match( await sum.innerText(), /in 60 kbit\/s/ ) );
      const told = async () => {
         await page.evaluate( () => globalThis.drainwatch.model.changed() );
         return sum.locator( 'figcaption' ).textContent();
      };
      await soon( async () => assert.match( await told(), /in: now 60 kbit\/s, highest 1.2 Gbit\/s/ ) );
   } );
} );

describe( 'the focus and what is open', () => {
   const focused = ( page ) => page.evaluate( () => document.activeElement.textContent );
   const focus = async ( page, name ) => {
      await page.locator( 'table.units a', { hasText: name } ).focus();
      await page.evaluate( () => {
         globalThis.lost = 0;
         document.activeElement.addEventListener( 'blur', () => ++globalThis.lost );
      } );
   };
   test( 'stay when other rows go, and are on the next row when their own goes', async () => {
      rig.fake.units = [ 'u1', 'u2', 'u3', 'u4' ].map( ( name ) => unit( name ) );
      const page = await rig.show();
      await soon( async () => assert.equal( await page.locator( 'table.units tbody tr' ).count(), 4 ) );
      await focus( page, 'u3' );
      const change = async ( names ) => {
         rig.fake.units = names.map( ( name ) => unit( name ) );
         rig.fake.event( 'unit', 'u1', 'removed' );
         await soon( async () => assert.deepEqual( await page.locator( 'table.units a' ).allInnerTexts(), [ ...names ].sort() ) );
      };
      await change( [ 'u2', 'u3', 'u4' ] );
      await change( [ 'a1', 'u2', 'u3', 'u4' ] );
      assert.deepEqual( [ await focused( page ), await page.evaluate( () => globalThis.lost ) ], [ 'u3', 0 ] );
      await change( [ 'a1', 'u2', 'u4' ] );
      assert.equal( await focused( page ), 'u4' );
      await change( [ 'a1' ] );
      assert.equal( await focused( page ), 'a1' );
   } );
   test( 'stay when their row comes before others', async () => {
      // More than are looked at closely.
      const cards = Array.from( { length: 12 }, ( _, i ) => unit( `a${10 + i}`, { state: 'maintenance', violating: [ 'et1' ] } ) );
      const late = ( name ) => [ 'u1', 'u2', 'u3' ].map( ( each ) => unit( each, { state: 'entering', overdue: each === name } ) );
      rig.fake.units = [ ...cards, ...late( null ) ];
      const page = await rig.show();
      await soon( async () => assert.equal( await page.locator( 'table.units tbody tr' ).count(), 3 ) );
      await focus( page, 'u3' );
      rig.fake.units = [ ...cards, ...late( 'u3' ) ];
      rig.fake.event( 'unit', 'u3', 'state' );
      await soon( async () => assert.deepEqual( await page.locator( 'table.units a' ).allInnerTexts(), [ 'u3', 'u1', 'u2' ] ) );
      assert.deepEqual( [ await focused( page ), await page.evaluate( () => globalThis.lost ) ], [ 'u3', 0 ] );
   } );
   test( 'go with a unit to where it is shown next', async () => {
      rig.fake.units = [ unit( 'u1' ), unit( 'u2' ) ];
      const page = await rig.show();
      await page.locator( 'table.units a', { hasText: 'u2' } ).focus();
      rig.fake.units = [ unit( 'u1' ), unit( 'u2', { state: 'entering' } ) ];
      rig.fake.event( 'unit', 'u2', 'state' );
      await page.locator( '.card' ).waitFor();
      assert.equal( await page.evaluate( () => document.activeElement.closest( '.card' )?.querySelector( 'h3' ).textContent ), 'u2' );
   } );
   test( 'stay in a maintenance that goes on', async () => {
      const open = { ...record( 7, 'u1' ), outcome: 'open', ended: null };
      rig.fake.maintenances = [ open ];
      const page = await rig.show( '#/history/7', { clock: true } );
      await page.locator( '.panel summary' ).click();
      assert.equal( await page.locator( '.story li' ).count(), 5 );
      await page.locator( '.panel summary' ).focus();
      rig.fake.maintenances = [ { ...open, interfaces: [ { ...open.interfaces[ 0 ],
         drift: [ { time: iso( 1e9 + 180 ), what: 'lowered' } ] } ] } ];
      await page.clock.runFor( 11000 );
      await soon( async () => assert.match( await text( page, '.panel .story' ), /lowered by somebody else/ ) );
      assert.equal( await focused( page ), '6 changes' );
   } );
} );

describe( 'a view that is left', () => {
   test( 'leaves no curves behind, also when its answer comes later', async () => {
      let answer;
      const held = new Promise( ( resolve ) => { answer = resolve; } );
      const page = await rig.show( '#/units' );
      await page.locator( '.card' ).waitFor();
      const curves = () => page.evaluate( () => globalThis.drainwatch.statistics.curves );
      const before = await curves();
      await page.route( '**/history/7', async ( route ) => {
         await held;
         await route.continue();
      } );
      await go( page, 'history/7' );
      await soon( async () => assert.match( await text( page, 'h1' ), /Maintenance 7/ ) );
      await go( page, '' );
      await page.locator( '.card' ).waitFor();
      const answered = page.waitForResponse( '**/history/7' );
      answer();
      await answered;
      await soon( async () => assert.equal( await curves(), before ) );
      await go( page, 'history/7' );
      await page.locator( '.panel canvas' ).waitFor();
      await go( page, '' );
      await soon( async () => assert.equal( await curves(), before ) );
   } );
   test( 'asks no more; one that is refused does not ask again and again', async () => {
      rig.fake.refuse = ( path ) => ( path.startsWith( 'history' ) ? 500 : null );
      const page = await rig.show( '#/unit/u1' );
      await page.locator( '.panel' ).first().waitFor();
      for ( let n = 0; n < 10; ++n ) {
         rig.fake.rates( { et2: [ n, n ] } );
         await new Promise( ( resolve ) => setTimeout( resolve, 100 ) );
      }
      const asked = ( part ) => rig.fake.asked.filter( ( path ) => path.includes( part ) ).length;
      assert.equal( asked( '/history?unit=u1' ), 1 );
      await go( page, 'history/7' );
      await soon( async () => assert.match( await text( page, 'main' ), /there is nothing here/ ) );
      assert.equal( asked( '/history/7' ), 1 );
   } );
   test( 'would have asked again if the agent was only busy', async () => {
      rig.fake.refuse = ( path ) => ( path.startsWith( 'history/7' ) ? 503 : null );
      const page = await rig.show( '#/history/7' );
      await soon( async () => assert.match( await text( page, 'main' ), /there is nothing here/ ) );
      rig.fake.refuse = () => null;
      await page.locator( '.panel canvas' ).waitFor();
      assert.doesNotMatch( await text( page, 'main' ), /there is nothing here/ );
   } );
} );

describe( 'what is said of a profile', () => {
   const facts = ( page ) => text( page, '.facts' );
   const slower = () => {
      rig.fake.profiles = [ { ...rig.fake.profiles[ 0 ], 'threshold-bps': 1000000 } ];
   };
   test( 'follows a configuration that is taken, with the threshold of the curve', async () => {
      rig.fake.interfaces = [ intf( 'et1' ) ];
      const page = await rig.show( '#/interface/et1' );
      await page.locator( '.link.good' ).waitFor();
      await soon( async () => assert.match( await facts( page ), /fast: below 100 kbit\/s for 10 s/ ) );
      slower();
      rig.fake.event( 'profile', 'fast', 'edited' );
      await soon( async () => assert.match( await facts( page ), /fast: below 1 Mbit\/s for 10 s/ ) );
      assert.match( await text( page, '.panel .rates' ), /threshold 1 Mbit\/s/ );
   } );
   test( 'follows it without a stream too', async () => {
      rig.fake.streamless = true;
      rig.fake.interfaces = [ intf( 'et1' ) ];
      const page = await rig.show( '#/interface/et1' );
      await soon( async () => assert.match( await text( page, '.link' ), /polling/ ) );
      await soon( async () => assert.match( await facts( page ), /fast: below 100 kbit/ ) );
      slower();
      rig.fake.event( 'profile', 'fast', 'edited' );
      await soon( async () => assert.match( await facts( page ), /fast: below 1 Mbit/ ) );
   } );
   for ( const [ how, answer ] of [ [ 'lost', ( route ) => route.abort() ], [ 'refused', ( route ) => route.fulfill( { status: 503 } ) ] ] )
      test( `is asked for again when the answer is ${how}`, async () => {
         rig.fake.interfaces = [ intf( 'et1' ) ];
         const page = await rig.show();
         await page.locator( '.link.good' ).waitFor();
         let before = 0;
         await page.route( '**/profiles', ( route ) => ( before++ ? route.continue() : answer( route ) ) );
         slower();
         rig.fake.event( 'profile', 'fast', 'edited' );
         await soon( async () => assert.equal( before, 1 ) );
         await go( page, 'interface/et1' );
         await soon( async () => assert.match( await facts( page ), /fast: below 1 Mbit/ ) );
      } );
} );

test( 'an interface that vanishes is live no more, but what is known of it stays', async () => {
   const page = await rig.show( '#/interface/et2' );
   await page.locator( '.panel canvas' ).waitFor();
   rig.fake.interfaces = rig.fake.interfaces.filter( ( { name } ) => name !== 'et2' );
   rig.fake.event( 'interface', 'et2', 'left', 'et2 has left u1' );
   await soon( async () => assert.match( await text( page, 'main' ), /There is no interface et2 any more/ ) );
   assert.equal( await page.locator( '.panel' ).isVisible(), false );
   assert.match( await text( page, 'main' ), /et2 has left u1/ );
   assert.equal( await page.locator( 'figure:visible canvas' ).count(), 1 );
   rig.fake.samples = () => undefined;
   await go( page, 'interface/et77' );
   await soon( async () => assert.match( await text( page, 'main' ), /There is no interface et77\./ ) );
} );
