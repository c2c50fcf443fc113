// Writes the seed corpora from the golden vectors: node fuzz/seeds.mjs
import fs from 'node:fs'
import path from 'node:path'

const here = path.dirname(new URL(import.meta.url).pathname)
const golden = name => JSON.parse(fs.readFileSync(path.join(here, '../tests/vectors/golden', name + '.json'), 'utf8'))
const un = text => Buffer.from(text, 'hex')
const seeds = (target, list) => {
    const folder = path.join(here, 'corpus', 'fuzz_' + target)
    fs.mkdirSync(folder, { recursive: true })
    list.forEach((seed, i) => fs.writeFileSync(path.join(folder, String(i).padStart(2, '0')), seed))
}

const account = golden('account')
const files = golden('files')
const entries = golden('entries')
const devices = golden('devices')
const sharing = golden('sharing')
const metas = entries.metas.map(m => m.json)
// As long as the fuzzers' inputs get: what would take forever if it took the square of its length.
const long = 65536
const dotted = ' .'.repeat(long / 2)
const marked = ('a' + '\u0316\u0301'.repeat(128)).repeat(Math.floor(long / 513))
const endless = 'a' + '\u0316\u0301'.repeat(long / 4 - 1)
const named = name => JSON.stringify({ v: 1, name: name.slice(0, -20) })
const longFile = JSON.stringify({ v: 1, name: dotted.slice(200), mime: 'a/b', size: 1, sha256: 'a'.repeat(64) })
const place = (...numbers) => {
    const bytes = Buffer.alloc(24)
    numbers.forEach((n, i) => bytes.writeBigInt64LE(BigInt(n), 8 * i))
    return bytes
}

seeds('open', ['', '01', '02', ...[28, 29].map(n => '01'.repeat(n)), ...golden('boxes').map(b => b.sealed)].map(un))
seeds('chunk', [[0, 1, 16], [1, 2, 10485793], [4294967294, 4294967295, '9223372036854775807'], [-1, 0, -1]]
    .flatMap(numbers => ['', files.contents[4].chunks[0]].map(chunk => Buffer.concat([place(...numbers), un(chunk)]))))
seeds('metadata', [...metas, '[[[[[[[[', '{"v":1,"name":"\\ud800"}', '{"v":1.0,"name":null}', named(marked),
    named(endless)])
seeds('recoveryCode', [account.recoveryCode, account.recoveryCode.toLowerCase().replaceAll('-', ' '), 'A'.repeat(52),
    un(account.recoverySecret)])
seeds('base64', ['QQ', 'QQ==', 'QUI=', '-_8', '+/8=', '=', '00ab', sharing.link.fragment])
seeds('quickSend', [...devices.items.map(i => i.json), ' https://example.org \n', 'HTTP://x'])
seeds('linkFragment', [sharing.link.fragment, sharing.link.fragment + '=', sharing.drop.fragment, ' Fotos\u0085 ', dotted])
seeds('dropItem', [...metas, '../a/b\\c\u0000.txt', 'x'.repeat(300) + '.tar.gz', 'e/\u0301', ' . ..', 'a\u202egpj.exe',
    dotted, marked, endless, longFile])
seeds('answer', [
    '{"changes":[{"seq":1,"entityType":"file","entityId":"f","op":"delete","createdAt":"2026-11-21T10:45:07.250Z","entity":' +
        '{"id":"f","folderId":"d","metaEnc":"AQI=","blobId":"b","encryptedSize":29,"chunkCount":1,"wrappedFileKey":"","version":1}},' +
        '{"seq":2,"entityType":"comet","entityId":"c","op":"land","entity":null}],"latestSeq":2,"hasMore":false}',
    '{"user":{"id":"u","email":"e","rootFolderId":"r","identities":["google"]},"device":{"id":"d","name":"n","platform":"web"},' +
        '"accessToken":"a","refreshToken":"r","wrappedMasterKey":"AQ=="}',
    '{"status":"pending","parts":[{"partNumber":1,"url":"http://x/","uploaded":true}],"expiresAt":"2026-11-21T10:45:07+02:00"}',
    '{"error":{"code":"parts_missing","message":" no ","details":{"missing":[1,2.5,1e300],"reason":"token_expired"}}}',
    'e30.eyJleHAiOjEuNX0.x', '[[[[[[[['])

const framed = (...texts) => Buffer.concat(texts.map(text => {
    const length = Buffer.alloc(4)
    length.writeUInt32LE(text.length)
    return Buffer.concat([length, Buffer.from(text)])
}))
seeds('messages', [
    framed('{"hello":{"version":1}}', '{"start":{"task":4294967296,"kind":"download","method":"GET","url":"http://x/","headers":' +
        '[{"name":"Range","value":"bytes=0-9"}],"file":"f","maxBytes":10,"idleSeconds":60,"allowsCellular":true}}'),
    framed('{"welcome":{"version":1,"process":7,"firstTask":4294967296}}', '{"finished":{"task":-1,"file":"f","status":429,' +
        '"headers":[{"name":"Retry-After","value":"7"}],"body":"AQI="}}', '{"eventsDelivered":true}'),
    framed('{"version":1,"results":[{"task":1,"file":"f","failure":{"kind":"file","message":"no","code":28},"headers":[]}]}'),
    Buffer.from('ffffffff00', 'hex'), Buffer.from('00000000', 'hex')])
