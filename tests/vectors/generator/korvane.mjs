// The sealed formats once more, over Node's crypto, so that the C++ code and the golden files share no mistake.
import crypto from 'node:crypto'

export const utf8 = text => Buffer.from(text, 'utf8')
export const hex = bytes => Buffer.from(bytes).toString('hex')
export const un = text => Buffer.from(text, 'hex')
export const sha256 = bytes => crypto.createHash('sha256').update(bytes).digest()
export const hmac = (key, data) => crypto.createHmac('sha256', key).update(data).digest()
export const hkdf = (ikm, info, length = 32, salt = Buffer.alloc(0)) =>
    Buffer.from(crypto.hkdfSync('sha256', ikm, salt, info, length))

// Repeatable bytes that stand for random ones.
export const made = (name, length = 32) => {
    let bytes = Buffer.alloc(0)
    for (let i = 0; bytes.length < length; ++i) bytes = Buffer.concat([bytes, sha256(`${name} ${i}`)])
    return bytes.subarray(0, length)
}

export function gcmSeal(key, nonce, aad, plaintext) {
    const cipher = crypto.createCipheriv('aes-256-gcm', key, nonce, { authTagLength: 16 })
    cipher.setAAD(aad)
    return Buffer.concat([cipher.update(plaintext), cipher.final(), cipher.getAuthTag()])
}

export function gcmOpen(key, nonce, aad, sealed) {
    const cipher = crypto.createDecipheriv('aes-256-gcm', key, nonce, { authTagLength: 16 })
    cipher.setAAD(aad)
    cipher.setAuthTag(sealed.subarray(-16))
    return Buffer.concat([cipher.update(sealed.subarray(0, -16)), cipher.final()])
}

let boxes = 0
export const seal = (key, plaintext, label) => {
    const nonce = made(`nonce ${boxes++}`, 12)
    return Buffer.concat([Buffer.of(1), nonce, gcmSeal(key, nonce, utf8(label), plaintext)])
}

const be32 = n => { const b = Buffer.alloc(4); b.writeUInt32BE(n); return b }
export const chunk = (fk, index, count, plain) => gcmSeal(fk, Buffer.concat([Buffer.alloc(8), be32(index)]),
    Buffer.concat([utf8('korvane/v1/chunk'), be32(index), be32(count)]), plain)

const privateKey = raw => crypto.createPrivateKey({
    key: Buffer.concat([un('302e020100300506032b656e04220420'), raw]), format: 'der', type: 'pkcs8',
})
const publicKey = raw => crypto.createPublicKey({
    key: Buffer.concat([un('302a300506032b656e032100'), raw]), format: 'der', type: 'spki',
})
export const publicOf = raw =>
    crypto.createPublicKey(privateKey(raw)).export({ format: 'der', type: 'spki' }).subarray(-32)
export const x25519 = (mine, theirs) =>
    crypto.diffieHellman({ privateKey: privateKey(mine), publicKey: publicKey(theirs) })

const ALPHABET = 'ABCDEFGHIJKLMNOPQRSTUVWXYZ234567'
export const base32 = bytes => {
    const bits = [...bytes].map(b => b.toString(2).padStart(8, '0')).join('')
    return (bits.match(/.{1,5}/g) ?? []).map(b => ALPHABET[parseInt(b.padEnd(5, '0'), 2)]).join('')
}
export const recoveryCode = secret => base32(secret).match(/.{1,4}/g).join('-')

// Lower case of each code point by itself.
export const blindInput = name => [...name.normalize('NFC')].map(c => c.toLowerCase()).join('')

const quoted = text => '"' + text.replace(/["\\\u0000-\u001f]/g, c => ({
    '"': '\\"', '\\': '\\\\', '\n': '\\n', '\r': '\\r', '\t': '\\t', '\b': '\\b', '\f': '\\f',
})[c] ?? '\\u' + c.charCodeAt(0).toString(16).padStart(4, '0')) + '"'

export const record = members =>
    '{' + members.map(([key, value]) =>
        `"${key}":${typeof value === 'string' ? quoted(value) : value}`).join(',') + '}'

export const metaJSON = meta => record([['v', 1], ['name', meta.name.normalize('NFC')],
    ...'mime' in meta ? [['mime', meta.mime], ['size', meta.size], ['sha256', meta.sha256]] : [],
    ...'mtime' in meta ? [['mtime', meta.mtime]] : []])

export const pairingDigits = data => {
    const digest = sha256(Buffer.concat([utf8('Korvane-pairing-code-v1'), data]))
    return (digest.readBigUInt64BE(0) % 10000000000000000n).toString().padStart(16, '0')
}
