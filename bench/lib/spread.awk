# Sorted numbers to "median (least - most)".
function show(x) {
  if (x >= 1000) return sprintf("%.0f", x)
  if (x >= 10) return sprintf("%.1f", x)
  return sprintf(x >= 0.1 ? "%.2f" : "%.3g", x)
}
{ value[NR] = $1 }
END {
  if (NR == 0) { print "-"; exit }
  half = int((NR + 1) / 2)
  median = NR % 2 ? value[half] : (value[half] + value[half + 1]) / 2
  print (NR > 1 ? show(median) " (" show(value[1]) " - " show(value[NR]) ")" : show(median))
}
