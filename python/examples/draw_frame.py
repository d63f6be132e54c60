#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws one frame of a recording as it is seen from above and from the sensor. Needs matplotlib.

    python/examples/draw_frame.py street.pcap TS4B picture.png --frame 10
"""

import argparse

import matplotlib

matplotlib.use("Agg")  # a file, no window
import matplotlib.pyplot as plt
import numpy as np

import orva


def draw(cloud: orva.Cloud, path: str) -> None:
    seen = cloud.points[cloud.valid]
    grid = cloud.grid
    distance = np.sqrt(sum(grid[axis].astype(float) ** 2 for axis in "xyz"))
    figure, (above, image) = plt.subplots(1, 2, figsize=(15, 6), width_ratios=(1, 1.3), layout="constrained")

    above.scatter(-seen["y"], seen["x"], c=np.log1p(seen["intensity"]), s=1.5, linewidths=0)
    above.set(title="from above, by intensity", xlabel="to the right (m)", ylabel="forward (m)", aspect="equal")
    above.set(xlim=(-30, 30), ylim=(-2, 60))

    far = np.percentile(distance[distance > 0], 98)
    distances = image.imshow(np.ma.masked_equal(distance, 0), aspect="auto", cmap="turbo", vmax=far)
    image.set(title="as the sensor sees it", xlabel="column", ylabel="line")
    figure.colorbar(distances, label="distance (m)")

    figure.suptitle(f"{cloud.model}, frame {cloud.frame}: {len(seen)} of {len(cloud)} points")
    figure.savefig(path, dpi=110)


def main() -> None:
    parser = argparse.ArgumentParser(description="Draw one frame of a recording.")
    parser.add_argument("recording")
    parser.add_argument("model")
    parser.add_argument("picture")
    parser.add_argument("--calib", help="calibration folder; default: the recording's name with .calib")
    parser.add_argument("--frame", type=int, default=0)
    options = parser.parse_args()
    with orva.open(options.recording, model=options.model, calib=options.calib) as recording:
        draw(recording[options.frame], options.picture)


if __name__ == "__main__":
    main()
