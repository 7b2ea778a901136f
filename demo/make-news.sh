#!/usr/bin/env bash
# Makes the news feed the demo serves: a JSON array at api/news and one
# picture per item under news/, drawn by ImageMagick at twice the card's
# size so they stay sharp on high-density screens.
#
#   make-news.sh WWWDIR BASE_URL
set -euo pipefail

www=$1
base=$2

mkdir -p "$www/news" "$www/api"

# name|gradient from|gradient to|headline|date|title|subtitle
items=(
    "spring-festival|#2b5876|#4e4376|Spring Festival|12 May 2025|Spring Festival|Lanterns over the harbour until the end of the month"
    "patch-notes|#3a1c71|#d76d77|Patch 1.4|2 May 2025|Patch 1.4 is live|New quests in the northern marshes and a faster map"
    "tournament|#134e5e|#71b280|Tournament|20 April 2025|Tournament sign-up|Teams of three, finals streamed on Saturday"
)

json="["
separator=""
for item in "${items[@]}"; do
    IFS='|' read -r name from to headline date title subtitle <<<"$item"
    convert -size 712x400 "gradient:$from-$to" \
        -fill 'rgba(255,255,255,0.12)' -draw 'circle 560,90 660,90' -draw 'circle 120,330 190,330' \
        -font DejaVu-Sans-Bold -pointsize 64 -fill 'rgba(255,255,255,0.35)' \
        -gravity north -annotate +0+80 "$headline" \
        -depth 8 "$www/news/$name.png"
    json+="$separator
    {\"date\": \"$date\", \"title\": \"$title\", \"subtitle\": \"$subtitle\",
     \"image\": \"$base/news/$name.png\", \"url\": \"https://www.hollowmere.example/news/$name\"}"
    separator=","
done
printf '%s\n]\n' "$json" > "$www/api/news"
