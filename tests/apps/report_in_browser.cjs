// The demo's report page in a real browser: `velmora demo` on a small grid, `velmora view` on its
// report folder, the page opened in headless Chromium. Checks that both 360 views load and show
// the scene in the direction they look (compared with the scene the demo generated), that the
// page logs no error and that every image it names is served.
//   node report_in_browser.cjs VELMORA_TOOL VIEWER_PACKAGE_FOLDER [SCREENSHOT_FOLDER]
// (VIEWER_PACKAGE_FOLDER: share/viewer, where `npm ci` installed playwright-core.)
// Exits 0 when every check passes, 1 when one fails, 77 (skipped) when Chromium cannot start.
'use strict';
const { spawn, execFileSync } = require('child_process');
const { createRequire } = require('module');
const fs = require('fs');
const os = require('os');
const path = require('path');

const [tool, packageFolder, keepFolder] = process.argv.slice(2);
const kSkipped = 77;
const kChromium = '/usr/bin/chromium';
// Mean colour difference per tile (levels) below which a view shows the expected scene.
const kTileTolerance = 24;

function skip(reason) {
  console.log('SKIPPED: ' + reason);
  process.exit(kSkipped);
}

const failures = [];
function check(ok, what) {
  console.log((ok ? 'ok      ' : 'FAILED  ') + what);
  if (!ok) failures.push(what);
}

function loadPlaywright() {
  try {
    return createRequire(path.resolve(packageFolder, 'package.json'))('playwright-core');
  } catch (error) {
    skip('playwright-core is not installed in ' + packageFolder + ' (run `npm ci` there)');
  }
}

// Starts `velmora view` and resolves with its process and the address it prints.
function startViewer(folder) {
  const server = spawn(tool, ['view', folder, '--port', '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    let said = '';
    server.stdout.on('data', (chunk) => {
      said += chunk;
      const address = said.match(/http:\/\/127\.0\.0\.1:\d+\//);
      if (address) resolve({ server, address: address[0] });
    });
    server.on('exit', (code) => reject(new Error('velmora view ended with ' + code + ': ' + said)));
  });
}

// Mean colour of each tile of a tilesX x tilesY grid over the viewer, from the screenshot and from
// the scene as a rectilinear view with the viewer's yaw (plus `turn`), pitch 0 and hfov would show
// it. Runs in the page, where the browser decodes both PNG images.
async function tileColours(page, screenshot, scene, hfov, turn) {
  return page.evaluate(async ({ screenshot, scene, hfov, turn }) => {
    const pixels = async (base64) => {
      const image = new Image();
      image.src = 'data:image/png;base64,' + base64;
      await image.decode();
      const canvas = document.createElement('canvas');
      canvas.width = image.width;
      canvas.height = image.height;
      const context = canvas.getContext('2d');
      context.drawImage(image, 0, 0);
      return context.getImageData(0, 0, image.width, image.height);
    };
    const shot = await pixels(screenshot);
    const world = await pixels(scene);
    const tilesX = 6, tilesY = 4;
    const focal = shot.width / 2 / Math.tan((hfov * Math.PI) / 360);
    const seen = [], expected = [];
    for (let ty = 0; ty < tilesY; ++ty) {
      for (let tx = 0; tx < tilesX; ++tx) {
        const a = [0, 0, 0], b = [0, 0, 0];
        let count = 0;
        for (let y = Math.floor((ty * shot.height) / tilesY); y < ((ty + 1) * shot.height) / tilesY; y += 2) {
          for (let x = Math.floor((tx * shot.width) / tilesX); x < ((tx + 1) * shot.width) / tilesX; x += 2) {
            const dx = x + 0.5 - shot.width / 2, dy = y + 0.5 - shot.height / 2;
            // Yaw 0 is the middle of the viewer-ready image: the scene's longitude 180 degrees.
            const longitude = Math.atan2(dx, focal) + Math.PI + turn;
            const latitude = Math.atan2(-dy, Math.hypot(dx, focal));
            let sx = Math.floor((longitude / (2 * Math.PI)) * world.width) % world.width;
            if (sx < 0) sx += world.width;
            const sy = Math.min(world.height - 1, Math.floor((0.5 - latitude / Math.PI) * world.height));
            const i = (y * shot.width + x) * 4, j = (sy * world.width + sx) * 4;
            for (let c = 0; c < 3; ++c) {
              a[c] += shot.data[i + c];
              b[c] += world.data[j + c];
            }
            ++count;
          }
        }
        seen.push(a.map((v) => v / count));
        expected.push(b.map((v) => v / count));
      }
    }
    return { seen, expected };
  }, { screenshot, scene, hfov, turn });
}

function meanTileDifference(tiles) {
  let sum = 0;
  tiles.seen.forEach((colour, t) => {
    sum += colour.reduce((s, v, c) => s + Math.abs(v - tiles.expected[t][c]), 0) / 3;
  });
  return sum / tiles.seen.length;
}

async function main() {
  const { chromium } = loadPlaywright();
  if (!fs.existsSync(kChromium)) skip(kChromium + ' is not installed');
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'velmora-report-'));
  let viewer, context;
  try {
    const demo = path.join(work, 'demo');
    execFileSync(tool, ['demo', '-o', demo, '--grid', '768x384', '--shot-size', '456x304'],
                 { stdio: ['ignore', 'ignore', 'inherit'] });
    viewer = await startViewer(path.join(demo, 'report'));
    console.log('velmora view serves ' + viewer.address);

    try {
      context = await chromium.launchPersistentContext(path.join(work, 'profile'), {
        executablePath: kChromium,
        headless: true,
        viewport: { width: 1100, height: 900 },
        args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
               '--disable-background-networking', '--disable-component-update', '--disable-sync',
               '--use-angle=swiftshader', '--enable-unsafe-swiftshader'],
      });
    } catch (error) {
      skip('Chromium cannot start here: ' + error.message.split('\n')[0]);
    }
    const page = context.pages()[0] || (await context.newPage());
    const problems = [];
    page.on('console', (message) => {
      if (message.type() === 'error') problems.push('console: ' + message.text());
    });
    page.on('pageerror', (error) => problems.push('page: ' + error.message));
    page.on('requestfailed', (request) => problems.push('request failed: ' + request.url()));
    page.on('response', (response) => {
      if (response.status() >= 400) problems.push(response.status() + ': ' + response.url());
    });

    await page.goto(viewer.address, { waitUntil: 'load' });
    const views = await page.$$eval('.viewer', (elements) => elements.map((e) => e.id));
    check(views.join() === 'view-Up,view-Down', 'the page holds the Up and Down 360 views (' + views + ')');
    for (const id of views) {
      const state = await page.waitForFunction((id) => {
        const element = document.getElementById(id);
        return element.dataset.loaded || element.dataset.error;
      }, id, { timeout: 60000 }).then((handle) => handle.jsonValue()).catch((error) => error.message);
      check(state === 'true', id + ' fired its load event (' + state + ')');
    }
    await page.waitForTimeout(500);  // a frame drawn after the load

    // Every image the page names, in <img> elements, links and the views' settings, is served.
    const named = await page.evaluate(() => {
      const files = new Set();
      document.querySelectorAll('img').forEach((img) => files.add(img.getAttribute('src')));
      document.querySelectorAll('a[href]').forEach((a) => {
        if (/\.(jpe?g|png)$/i.test(a.getAttribute('href'))) files.add(a.getAttribute('href'));
      });
      document.querySelectorAll('.viewer').forEach((element) => {
        files.add(JSON.parse(element.dataset.settings).panorama);
      });
      return [...files];
    });
    for (const file of named) {
      const response = await page.request.get(new URL(file, viewer.address).href);
      check(response.status() === 200 && (await response.body()).length > 0, 'served ' + file);
    }
    const broken = await page.$$eval('img', (images) =>
      images.filter((img) => !img.complete || img.naturalWidth === 0).map((img) => img.src));
    check(broken.length === 0, 'every <img> decoded (' + broken + ')');

    // The Up view shows the scene where it looks: its tiles match the scene's rectilinear view,
    // and fit it far better than the view a quarter turn away.
    const screenshot = await page.locator('#view-Up').screenshot({ path: path.join(work, 'up-view.png') });
    if (keepFolder) fs.copyFileSync(path.join(work, 'up-view.png'), path.join(keepFolder, 'up-view.png'));
    const settings = JSON.parse(await page.getAttribute('#view-Up', 'data-settings'));
    const scene = fs.readFileSync(path.join(demo, 'scene.png')).toString('base64');
    const here = await tileColours(page, screenshot.toString('base64'), scene, settings.hfov, 0);
    const turned = await tileColours(page, screenshot.toString('base64'), scene, settings.hfov, Math.PI / 2);
    const brightness = here.seen.flat().reduce((s, v) => s + v, 0) / (here.seen.length * 3);
    const difference = meanTileDifference(here), turnedDifference = meanTileDifference(turned);
    check(brightness > 40, 'the view is not black (mean level ' + brightness.toFixed(1) + ')');
    check(difference < kTileTolerance, 'the view shows the scene in its direction (mean tile difference ' +
          difference.toFixed(1) + ' levels)');
    check(difference * 2 < turnedDifference, 'a quarter turn away fits worse (' +
          turnedDifference.toFixed(1) + ' levels)');
    check(problems.length === 0, 'the page logged no error' + (problems.length ? ': ' + problems.join('; ') : ''));
  } finally {
    if (context) await context.close();
    if (viewer) {
      viewer.server.kill('SIGTERM');
      await new Promise((resolve) => viewer.server.once('exit', resolve));
    }
    fs.rmSync(work, { recursive: true, force: true });
  }
  if (failures.length) {
    console.log(failures.length + ' check(s) failed');
    process.exit(1);
  }
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
