#!/usr/bin/env python3
"""Writes tests/text/data/shaping/reference.txt, the glyphs and positions a reference shaper gives for
words in Latin, Arabic, Hebrew, Devanagari, Bengali, Tamil, Malayalam, Telugu and Kannada, which the shaping tests compare with.

Run from the repository root:  python3 tools/gen_shaping_reference.py
It needs hb-shape (Debian's libharfbuzz-bin, a test-only tool), the Noto and DejaVu fonts of the set-up
script and the Amiri fonts of the real documents under ../shared/realdocs. Fonts that are missing are
left out.

Each line of the output is: font path, script tag, direction (ltr or rtl), the text, then the glyphs in
visual order as "glyph@x_offset,y_offset+x_advance" in font units, fields separated by tabs.
"""
import html
import os
import re
import subprocess
import sys

NOTO = "/usr/share/fonts/truetype/noto/"
DEJAVU = "/usr/share/fonts/truetype/dejavu/"
AMIRI = os.path.normpath(os.path.join(os.path.dirname(__file__), "..", "..", "shared", "realdocs", "cases",
                                      "amiri-ar"))
BASH = os.path.normpath(os.path.join(os.path.dirname(__file__), "..", "..", "shared", "realdocs", "cases",
                                     "bash-manual", "bashref.html"))
OUT = os.path.join("tests", "text", "data", "shaping", "reference.txt")


def words_of(path, pattern, count, pick=None):
    """Distinct words of a document, in order of first use."""
    if not os.path.exists(path):
        return []
    text = html.unescape(re.sub(r"<[^>]+>", " ", open(path, encoding="utf-8").read()))
    seen = []
    for w in re.findall(pattern, text):
        if w not in seen and (pick is None or pick(w)):
            seen.append(w)
        if len(seen) == count:
            break
    return seen


LATIN_EXTRA = ["office", "affluent", "waffle", "fjord", "AVATAR", "Toward", "LYNX", "Wave", "T.V.", "P.Y.",
               "flip", "fly", "efficient", "shuffling", "Yo-yo", "To", "Ta", "Te", "Vo", "We", "Ya"]

ARABIC_EXTRA = ["بِسْمِ", "ٱللَّهِ", "ٱلرَّحْمَٰنِ", "ٱلرَّحِيمِ", "السلام", "عليكم", "لا", "لله", "محمد", "مستشفى",
                "ـعـ", "ب\u200dب", "ك\u200cك", "تَّ", "فِي", "قُرْآن", "ئ", "ىٰ", "لَآ", "بيت",
                "بَٔ", "سِٕ", "كُٔن", "بِّٕ"]

HEBREW = ["שָׁלוֹם", "בְּרֵאשִׁית", "בָּרָא", "אֱלֹהִים", "אֵת", "הַשָּׁמַיִם", "וְאֵת", "הָאָרֶץ", "עִבְרִית",
          "יְרוּשָׁלַיִם", "תּוֹרָה", "מִשְׁפָּט", "כְּתִיבָה", "שַׁבָּת", "סֵפֶר", "דָּבָר", "חֶסֶד", "לֵב", "אוֹר",
          "מַיִם", "שֶׁמֶשׁ", "יָרֵחַ", "כּוֹכָב", "אִישׁ", "אִשָּׁה"]

DEVANAGARI = ["नमस्ते", "दुनिया", "क्षत्रिय", "हिन्दी", "भारत", "प्रधानमंत्री", "विद्यालय", "स्वतंत्रता", "राष्ट्र",
              "कृष्ण", "धर्म", "कर्म", "पत्नी", "श्री", "ज्ञान", "द्वार", "अर्थ", "मुख्य", "शब्द", "प्रेम", "किताब",
              "पढ़ना", "लिखना", "सूर्य", "चंद्र", "विश्व", "उत्तर", "दक्षिण", "पश्चिम", "पूर्व", "क्रिकेट", "ट्रेन",
              "स्कूल", "अंग्रेज़ी", "हृदय", "रात्रि", "शिक्षा", "संस्कृत", "व्याकरण", "आत्मा", "महात्मा", "गांधी",
              "पुस्तक", "कार्य", "सर्वश्रेष्ठ", "वर्ष", "त्योहार", "दर्द", "गर्म", "र्कि", "क्कि", "स्त्री", "द्ध",
              "ह्म", "ट्ठ", "ङ्क", "क़", "र्", "र्\u200dक", "क्\u200dष", "क्\u200cष", "कि", "की", "कु", "कू",
              "के", "कै", "को", "कौ", "कं", "कः", "कँ",
              "ि", "ाक", "्", "कंि"]

BENGALI = ["বাংলা", "ভাষা", "কলকাতা", "রবীন্দ্রনাথ", "ঠাকুর", "বিশ্ববিদ্যালয়", "স্বাধীনতা", "সংস্কৃতি", "কর্ম",
           "ধর্ম", "প্রেম", "শিক্ষা", "ক্ষমা", "জ্ঞান", "বন্ধু", "মানুষ", "পৃথিবী", "সূর্য", "চন্দ্র", "নদী",
           "কবিতা", "গান", "বই", "পড়া", "লেখা", "কোথায়", "কেমন", "আছেন", "ধন্যবাদ", "ভালো", "যুক্তরাষ্ট্র",
           "আর্থিক", "স্ত্রী", "রাত্রি", "কৃষ্ণ", "কি", "কে", "কো", "কৌ", "কৈ"]

TAMIL = ["தமிழ்", "வணக்கம்", "நன்றி", "இந்தியா", "சென்னை", "கல்வி", "புத்தகம்", "மொழி", "உலகம்", "அன்பு",
         "கொடு", "கேள்", "பெண்", "பொங்கல்", "கோயில்", "கௌரவம்", "ஸ்ரீ", "க்ஷ", "திருக்குறள்", "வள்ளுவர்",
         "பாரதி", "நாடு", "வீடு", "மக்கள்", "சொல்", "எழுத்து", "கி", "கீ", "கு", "கூ", "கெ", "கே", "கை", "கொ",
         "கோ", "கௌ"]

# Malayalam: pre-base Ra (the 'pref' form after a virama), atomic chillus and the older chillu sequences
# with ZWJ, and the dot reph U+0D4E of the older orthography.
MALAYALAM = ["മലയാളം", "കേരളം", "പ്രധാനമന്ത്രി", "ക്രമം", "ഗ്രാമം", "പ്രേമം", "ശ്രീ", "സ്ത്രീ", "കാര്യം",
             "ധർമ്മം", "അവൻ", "കൽ", "പാൾ", "അവർ", "മൺ", "വിദ്യാർത്ഥി", "സ്കൂൾ", "പുസ്തകം", "ഭാരതം", "ഇന്ത്യ",
             "തിരുവനന്തപുരം", "കൊച്ചി", "കോഴിക്കോട്", "കൈ", "കൌ", "കെ", "കൊ", "ക്ക", "ന്ന", "ങ്ങ", "ഞ്ഞ",
             "ണ്ട", "ന്റ", "ക്ഷ", "ക്ര", "ക്രി", "പ്രി", "ക്രെ", "ക്രൊ", "ദ്ര", "ന്ത്ര", "ഗ്രേ", "പ്രൈ",
             "\u0D4Eക", "\u0D4Eമ്മ", "കാ\u0D4Eയ്യം", "ധ\u0D4Eമ്മം", "ആ\u0D4Eദ്രം", "മൂ\u0D4Eഖൻ",
             "ന്\u200d", "ര്\u200d", "ല്\u200d", "ള്\u200d", "ണ്\u200d", "അവന്\u200d", "വ്വ", "യ്യ",
             "ല്ല", "മ്മ", "ട്ട", "ത്ത", "പ്പ", "ച്ച", "സ്വ", "ത്വ", "ക്യ", "ദ്യ", "ശ്ശ", "സ്ക്ര", "ഗ്ല"]

TELUGU = ["తెలుగు", "భాష", "హైదరాబాద్", "ఆంధ్రప్రదేశ్", "ప్రభుత్వం", "విద్యార్థి", "కార్యక్రమం", "శ్రీ",
          "స్త్రీ", "రాష్ట్రం", "కృష్ణ", "ధర్మం", "కర్మ", "పుస్తకం", "ప్రేమ", "నమస్కారం", "ధన్యవాదాలు", "క్ష",
          "జ్ఞానం", "సూర్యుడు", "చంద్రుడు", "భారతదేశం", "కి", "కీ", "కు", "కూ", "కె", "కే", "కై", "కొ", "కో",
          "కౌ", "కం", "కః", "ర్\u200dక", "ర్క", "క్క", "ర్క్ష", "క్ర", "స్త్ర"]

KANNADA = ["ಕನ್ನಡ", "ಬೆಂಗಳೂರು", "ಕರ್ನಾಟಕ", "ಪ್ರಧಾನ", "ಶ್ರೀ", "ಸ್ತ್ರೀ", "ರಾಷ್ಟ್ರ", "ವಿದ್ಯಾರ್ಥಿ", "ಕಾರ್ಯ",
           "ಧರ್ಮ", "ಕರ್ಮ", "ಕೃಷ್ಣ", "ಪುಸ್ತಕ", "ಪ್ರೀತಿ", "ಜ್ಞಾನ", "ಕ್ಷಮೆ", "ಸೂರ್ಯ", "ಚಂದ್ರ", "ಭಾರತ", "ನಮಸ್ಕಾರ",
           "ಧನ್ಯವಾದ", "ಕಿ", "ಕೀ", "ಕು", "ಕೂ", "ಕೆ", "ಕೇ", "ಕೈ", "ಕೊ", "ಕೋ", "ಕೌ", "ಕಂ", "ಕಃ", "ರ್ಕ",
           "ರ್\u200dಕ", "ಕ್ಕ", "ರ್ಕ್ಷ", "ಕ್ರ", "ಸ್ತ್ರ", "ಕೋ"]


def sets():
    latin = words_of(BASH, r"[A-Za-z][a-z]+", 90, lambda w: "f" in w or w[0] in "AVWTYPLF") + LATIN_EXTRA
    arabic = words_of(os.path.join(AMIRI, "documentation", "Documentation-Arabic.html"),
                      r"[\u0600-\u06FF\u0750-\u077F]+", 60) + ARABIC_EXTRA
    return [
        (DEJAVU + "DejaVuSerif.ttf", "latn", "ltr", latin),
        (DEJAVU + "DejaVuSans.ttf", "latn", "ltr", latin[:40]),
        (NOTO + "NotoSerif-Regular.ttf", "latn", "ltr", latin[:40]),
        (NOTO + "NotoNaskhArabic-Regular.ttf", "arab", "rtl", arabic),
        (NOTO + "NotoSansArabic-Regular.ttf", "arab", "rtl", arabic[:40]),
        (os.path.join(AMIRI, "Amiri-Regular.ttf"), "arab", "rtl", arabic),
        (NOTO + "NotoSansHebrew-Regular.ttf", "hebr", "rtl", HEBREW),
        (NOTO + "NotoSerifHebrew-Regular.ttf", "hebr", "rtl", HEBREW),
        (NOTO + "NotoSansDevanagari-Regular.ttf", "deva", "ltr", DEVANAGARI),
        (NOTO + "NotoSerifDevanagari-Regular.ttf", "deva", "ltr", DEVANAGARI),
        (NOTO + "NotoSansBengali-Regular.ttf", "beng", "ltr", BENGALI),
        (NOTO + "NotoSansTamil-Regular.ttf", "taml", "ltr", TAMIL),
        (NOTO + "NotoSansMalayalam-Regular.ttf", "mlym", "ltr", MALAYALAM),
        (NOTO + "NotoSerifMalayalam-Regular.ttf", "mlym", "ltr", MALAYALAM),
        (NOTO + "NotoSansTelugu-Regular.ttf", "telu", "ltr", TELUGU),
        (NOTO + "NotoSerifTelugu-Regular.ttf", "telu", "ltr", TELUGU),
        (NOTO + "NotoSansKannada-Regular.ttf", "knda", "ltr", KANNADA),
        (NOTO + "NotoSerifKannada-Regular.ttf", "knda", "ltr", KANNADA),
    ]


def shape(font, script, direction, text):
    out = subprocess.run(["hb-shape", "--no-glyph-names", "--no-clusters", "--script=" + script,
                          "--direction=" + direction, font, text],
                         check=True, capture_output=True, text=True).stdout.strip()
    glyphs = []
    for item in out.strip("[]").split("|"):
        m = re.fullmatch(r"(\d+)(?:@(-?\d+),(-?\d+))?\+(-?\d+)(?:,(-?\d+))?", item)
        if not m:
            raise SystemExit("unexpected hb-shape output: " + out)
        gid, x, y, adv = m.group(1), m.group(2) or "0", m.group(3) or "0", m.group(4)
        glyphs.append(f"{gid}@{x},{y}+{adv}")
    return " ".join(glyphs)


def main():
    lines = []
    for font, script, direction, texts in sets():
        if not os.path.exists(font):
            print("skipped, not installed:", font, file=sys.stderr)
            continue
        for t in texts:
            # Fonts of the real documents are named from the repository root, so that any checkout finds them.
            name = font if font.startswith("/usr/") else os.path.relpath(font)
            lines.append("\t".join([name, script, direction, t, shape(font, script, direction, t)]))
    os.makedirs(os.path.dirname(OUT), exist_ok=True)
    with open(OUT, "w", encoding="utf-8") as f:
        f.write("# Generated by tools/gen_shaping_reference.py with hb-shape; do not edit.\n")
        f.write("\n".join(lines) + "\n")
    print(len(lines), "strings written to", OUT)


if __name__ == "__main__":
    main()
