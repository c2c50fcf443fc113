// Checks the published vectors and their variations against Node's crypto and writes the golden files anew:
//
//   node tests/vectors/generate.mjs
//
// The output is the same on every run; anything that does not match ends the script with an error.
import assert from 'node:assert/strict'
import fs from 'node:fs'
import path from 'node:path'
import { argon2id } from './generator/argon2.mjs'
import * as k from './generator/korvane.mjs'

const { hex, un, utf8, made, seal } = k
const here = path.dirname(new URL(import.meta.url).pathname)
const read = (folder, name) => {
    const vectors = JSON.parse(fs.readFileSync(path.join(here, folder, name + '.json'), 'utf8'))
    assert(vectors.length > 0, `${name}: no vectors`)
    return vectors
}
const golden = (name, vectors) =>
    fs.writeFileSync(path.join(here, 'golden', name + '.json'), JSON.stringify(vectors, null, 1) + '\n')
const argon2 = (password, salt, params) => argon2id({
    password, salt, m: params.memoryKib, t: params.iterations, p: params.parallelism, length: params.outputLength,
})

function checkAgainstNode() {
    for (const v of read('published', 'aes-gcm')) {
        assert.equal(hex(k.gcmOpen(un(v.key), un(v.iv), un(v.aad), un(v.ct + v.tag))), v.pt, v.name)
        assert.equal(hex(k.gcmSeal(un(v.key), un(v.iv), un(v.aad), un(v.pt))), v.ct + v.tag, v.name)
    }
    for (const v of read('cases', 'aes-gcm-forged')) {
        assert.throws(() => k.gcmOpen(un(v.key), un(v.iv), un(v.aad), un(v.ct + v.tag)), v.name)
    }
    for (const v of read('published', 'hkdf')) {
        assert.equal(hex(k.hkdf(un(v.ikm), un(v.info), v.length, un(v.salt))), v.okm, v.name)
    }
    for (const v of read('published', 'hmac')) {
        assert.equal(hex(k.hmac(un(v.key), un(v.data))).slice(0, v.truncated ? 32 : 64), v.mac, v.name)
    }
    for (const v of [...read('published', 'x25519'), ...read('cases', 'x25519-encodings')]) {
        if (v.shared) assert.equal(hex(k.x25519(un(v.private), un(v.public))), v.shared, v.name)
        else assert.throws(() => k.x25519(un(v.private), un(v.public)), v.name)
    }
    for (const v of read('published', 'argon2id')) {
        assert.equal(hex(argon2id({
            password: un(v.password), salt: un(v.salt), secret: un(v.secret), ad: un(v.associatedData),
            m: v.memoryKib, t: v.iterations, p: v.parallelism, length: v.outputLength,
        })), v.tag, v.name)
    }
    for (const v of read('published', 'base32')) assert.equal(k.base32(utf8(v.text)), v.base32)
}

const small = { memoryKib: 256, iterations: 2, parallelism: 2, outputLength: 32 }
const mk = made('master key')
const fk = made('file key')
const sub = label => k.hkdf(mk, label)

function account() {
    const password = 'correct hôrse Баттери \u{1F40E}'
    const salt = made('kdf salt', 16)
    const raw = argon2(utf8(password), salt, small)
    const kek = k.hkdf(raw, 'korvane/v1/kek')
    const recoverySecret = made('recovery secret')
    const rk = k.hkdf(recoverySecret, 'korvane/v1/rk')
    return {
        password, kdfSalt: hex(salt), params: small, kek: hex(kek), authKey: hex(k.hkdf(raw, 'korvane/v1/auth')),
        recoverySecret: hex(recoverySecret), recoveryCode: k.recoveryCode(recoverySecret), rk: hex(rk),
        rkAuth: hex(k.hkdf(recoverySecret, 'korvane/v1/rk-auth')),
        masterKey: hex(mk), blindKey: hex(sub('korvane/v1/blind')), dedupeKey: hex(sub('korvane/v1/dedupe')),
        appDataKey: hex(sub('korvane/v1/app-data')), quickSendKey: hex(sub('korvane/v1/quick-send')),
        wrappedMasterKey: hex(seal(kek, mk, 'korvane/v1/mk')),
        wrappedMasterKeyRecovery: hex(seal(rk, mk, 'korvane/v1/mk-recovery')),
    }
}

function files() {
    const size = 64
    const contents = [0, 1, size - 1, size, size + 1, 2 * size].map(length => {
        const plain = made('content', length)
        const count = Math.max(1, Math.ceil(length / size))
        return {
            plain: hex(plain), sha256: hex(k.sha256(plain)),
            chunks: Array.from({ length: count }, (_, i) =>
                hex(k.chunk(fk, i, count, plain.subarray(i * size, (i + 1) * size)))),
        }
    })
    const far = 4294967294
    return {
        fileKey: hex(fk), chunkSize: size, contents,
        farChunk: { index: far, chunkCount: far + 1, plain: '00ff', chunk: hex(k.chunk(fk, far, far + 1, un('00ff'))) },
        wrappedFileKey: hex(seal(mk, fk, 'korvane/v1/fk')),
        thumbnail: { plain: '89504e47', sealed: hex(seal(fk, un('89504e47'), 'korvane/v1/thumb')) },
    }
}

function entries() {
    const sha256 = hex(k.sha256('x'))
    const metas = [
        { name: 'Papers' },
        { name: 'E\u0301te\u0301' },
        { name: 'a.txt', mime: 'text/plain', size: 0, sha256 },
        { name: 'q"b\\t\tn\nr\r\b\f\u0001\u001f/é\u{1F600}\u007f', mime: 'x/"y"', size: 5, sha256, mtime: '2024-01-02T03:04:05Z' },
    ].map(meta => ({ meta, json: k.metaJSON(meta), sealed: hex(seal(mk, utf8(k.metaJSON(meta)), 'korvane/v1/meta')) }))
    metas.push({
        meta: { name: 'big', mime: 'x/y', size: '9223372036854775807', sha256 },
        json: k.metaJSON({ name: 'big', mime: 'x/y', size: 9223372036854775807n, sha256 }),
    })
    const names = ['', 'readme.TXT', 'E\u0301te', '\u00c9te', '\u00e9te', 'ΟΔΥΣΣΕΥΣ', 'İstanbul', 'I', 'Straße', 'ẞ',
        'ǅ', 'Å', '\u212B', 'Ⅷ', 'Ａ', '𐐀', '한글', 'ᄒ\u1161ᆫ', 'ﬁ', '\u0958', 'Ꭰ', 'ϴ', 'a\u0327\u0301', 'a\u0301\u0327',
        'nul\0byte', '\u{1F468}\u200d\u{1F469}'].map(name => ({
        name, input: k.blindInput(name), blindIndex: hex(k.hmac(sub('korvane/v1/blind'), utf8(k.blindInput(name)))),
    }))
    const contentHash = k.sha256('content')
    return {
        metas, names,
        blob: { sha256: hex(contentHash), blobId: hex(k.hmac(sub('korvane/v1/dedupe'), contentHash)) },
        appData: {
            name: 'settings', value: 'cafe00',
            sealed: hex(seal(sub('korvane/v1/app-data'), un('cafe00'), 'korvane/v1/app-data/settings')),
        },
    }
}

function devices() {
    const [approver, device] = [made('approver'), made('new device')]
    const [approverPub, devicePub] = [approver, device].map(k.publicOf)
    const pairKey = k.hkdf(k.x25519(approver, devicePub), 'korvane/v1/pair', 32, Buffer.concat([approverPub, devicePub]))
    const sentAt = '2024-05-06T07:08:09.000Z'
    const items = [
        { kind: 'text', text: 'Grüße\n' },
        { kind: 'link', url: 'https://example.org/?a=1&b="2"' },
        { kind: 'file', fileId: 'f1', name: 'a/b', mime: 'text/plain', size: 12 },
    ].map(item => {
        const json = k.record([['v', 1], ...Object.entries(item), ['sentAt', sentAt]])
        return { item, sentAt, json, sealed: hex(seal(sub('korvane/v1/quick-send'), utf8(json), 'korvane/v1/quick-send')) }
    })
    let leadingZero = 0
    while (!k.pairingDigits(utf8(String(leadingZero))).startsWith('0')) ++leadingZero
    return {
        pairing: {
            approver: hex(approver), approverPublic: hex(approverPub), device: hex(device), devicePublic: hex(devicePub),
            pairKey: hex(pairKey), sealed: hex(seal(pairKey, mk, 'korvane/v1/pair')),
        },
        digits: ['', String(leadingZero), 'a'.repeat(64)].map(text =>
            ({ data: hex(utf8(text)), digits: k.pairingDigits(utf8(text)) })),
        items,
    }
}

function sharing() {
    const link = made('link key')
    const passwordSalt = made('link salt', 16)
    const params = { ...small, outputLength: 32 }
    const entryKey = k.hkdf(link, 'korvane/v1/link-pw', 32, argon2(utf8('Geheim'), passwordSalt, params))
    const folder = utf8(k.metaJSON({ name: 'Shared' }))
    const [owner, sender] = [made('drop owner'), made('drop sender')]
    const [ownerPub, senderPub] = [owner, sender].map(k.publicOf)
    const dropKey = k.hkdf(k.x25519(sender, ownerPub), 'korvane/v1/drop-key', 32, Buffer.concat([senderPub, ownerPub]))
    const meta = { name: '../Ré\u0085sumé.pdf ', mime: 'Application/PDF', size: 3, sha256: hex(k.sha256('abc')), mtime: 'yesterday' }
    const print = hex(k.sha256(Buffer.concat([utf8('korvane/v1/drop-fp'), ownerPub]))).slice(0, 32)
    const secret = [['v', 1], ['token', 'tok"en'], ['label', 'Fotos'], ['folderId', 'fo1']]
    return {
        link: {
            key: hex(link), fragment: link.toString('base64url'), password: 'Geheim', passwordSalt: hex(passwordSalt), params,
            entryKey: hex(entryKey), fileKey: hex(fk), wrapped: hex(seal(entryKey, fk, 'korvane/v1/link')),
            metaName: 'Shared', meta: hex(seal(entryKey, folder, 'korvane/v1/link-meta')),
        },
        drop: {
            owner: hex(owner), ownerPublic: hex(ownerPub), sender: hex(sender), senderPublic: hex(senderPub),
            wrappedPrivateKey: hex(seal(mk, owner, 'korvane/v1/drop-priv')), dropKey: hex(dropKey), fileKey: hex(fk),
            wrappedFileKey: hex(seal(dropKey, fk, 'korvane/v1/drop-wrap')),
            metaEnc: hex(seal(dropKey, utf8(k.metaJSON(meta)), 'korvane/v1/drop-meta')),
            cleanName: '..Résumé.pdf', cleanMime: 'application/pdf',
            fingerprint: print.match(/.{4}/g).join(' '),
            label: ' Fotos ', fragment: ownerPub.toString('base64url') + '.' + utf8('Fotos').toString('base64url'),
            linkSecret: Object.fromEntries(secret), sealedLink: hex(seal(mk, utf8(k.record(secret)), 'korvane/v1/drop-link')),
            password: 'Tür', passwordSalt: hex(passwordSalt), params,
            passwordKey: hex(k.hkdf(argon2(utf8('Tür'), passwordSalt, params), 'korvane/v1/drop-pw')),
        },
    }
}

function boxes() {
    const key = made('box key')
    return [0, 1, 15, 16, 17, 200].map(length => {
        const plaintext = made('plaintext', length)
        return { key: hex(key), aad: 'korvane/v1/meta', plaintext: hex(plaintext), sealed: hex(seal(key, plaintext, 'korvane/v1/meta')) }
    })
}

checkAgainstNode()
golden('boxes', boxes())
golden('account', account())
golden('files', files())
golden('entries', entries())
golden('devices', devices())
golden('sharing', sharing())
