# Ordinary kriging with gstat on the problem kriging.py wrote: Rscript gstat.R FOLDER
suppressPackageStartupMessages(library(gstat))

folder <- commandArgs(trailingOnly = TRUE)[1]
settings <- read.csv(file.path(folder, "settings.csv"))
structures <- read.csv(file.path(folder, "structures.csv"))

table3 <- function(name, rows, columns) {
  values <- readBin(file.path(folder, name), "double", rows * length(columns))
  frame <- as.data.frame(matrix(values, ncol = length(columns), byrow = TRUE))
  setNames(frame, columns)
}
points <- table3("points.bin", settings$n_points, c("x", "y", "z"))
points$v <- table3("values.bin", settings$n_points, "v")$v
targets <- table3("targets.bin", settings$n_targets, c("x", "y", "z"))

# vgm warns about its rotation convention; kriging.py compares the results, which shows it right.
model <- vgm(settings$nugget, "Nug", 0)
for (i in seq_len(nrow(structures))) {
  s <- structures[i, ]
  exponential <- s$kind == "exponential"
  model <- suppressWarnings(vgm(
    s$sill, if (exponential) "Exp" else "Sph", if (exponential) s$r1 / 3 else s$r1,
    anis = c(s$azimuth %% 360, s$dip %% 360, s$turn %% 360, s$r2 / s$r1, s$r3 / s$r1),
    add.to = model
  ))
}

# Octants are looked at only where a search radius is given, so one beyond all data stands there.
octants <- if (settings$octant > 0) list(omax = settings$octant, maxdist = settings$reach) else NULL
kriging <- do.call(gstat, c(
  list(formula = v ~ 1, locations = ~ x + y + z, data = points, model = model),
  nmax = settings$neighbors, octants
))
seconds <- system.time(out <- predict(kriging, targets, debug.level = 0))["elapsed"]
writeBin(c(seconds, out$var1.pred, out$var1.var), file.path(folder, "result.bin"))
