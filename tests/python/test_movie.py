"""Movies as Python sees them, beside what ffmpeg and ffprobe say of them."""

import gc
import io
import os
import signal
import threading
import unittest
from fractions import Fraction
from pathlib import Path

import material
import numpy

import kestrel


def open_files():
    return len(os.listdir("/proc/self/fd"))


class Facts(unittest.TestCase):
    def test_are_those_of_the_file(self):
        with kestrel.Movie(material.movie()) as movie:
            info = movie.info
            self.assertEqual(info.video.codec, "h264")
            self.assertEqual((info.video.width, info.video.height), (160, 120))
            self.assertEqual(info.video.frame_rate, Fraction(25))
            self.assertEqual([track.codec for track in info.audio], ["aac"])
            self.assertEqual(info.audio[0].sample_rate, 48000)
            self.assertEqual(info.size, material.movie().stat().st_size)
            self.assertAlmostEqual(movie.duration, 2, delta=0.05)
            self.assertEqual(movie.size, (160, 120))
            self.assertEqual(len(info.streams), 2)
            self.assertIn("h264 160x120", repr(movie))

    def test_a_file_that_is_none_is_an_error_of_the_system_too(self):
        with self.assertRaises(kestrel.InputError) as raised:
            kestrel.Movie("/nowhere.mp4")
        self.assertIsInstance(raised.exception, OSError)
        self.assertEqual(raised.exception.subject, "/nowhere.mp4")
        self.assertIn("No such file", str(raised.exception))
        with self.assertRaises(kestrel.SettingsError):
            kestrel.Movie(material.movie(), no_such_option=1)


class Pictures(unittest.TestCase):
    def test_are_the_decoded_ones_to_the_sample(self):
        path = material.movie("ten.mkv", "-c:v", "ffv1", "-pix_fmt", "yuv422p10le", "-c:a", "flac")
        for name, pixels, wide in ((material.movie(), "yuv420p", 1), (path, "yuv422p10le", 2)):
            expected = material.decoded(name, pixels)
            with kestrel.Movie(name) as movie:
                seen = list(movie.pictures())
                self.assertEqual(len(seen), 50)
                for picture, samples in zip(seen, expected):
                    self.assertEqual(picture.format, pixels)
                    planes = [numpy.asarray(plane) for plane in picture.planes]
                    self.assertEqual({plane.itemsize for plane in planes}, {wide})
                    self.assertTrue(
                        numpy.array_equal(numpy.concatenate([p.ravel() for p in planes]), samples)
                    )

    def test_come_in_rgb(self):
        path = material.movie("full.mkv", "-c:v", "ffv1", "-pix_fmt", "yuv444p", "-c:a", "flac")
        samples = material.decoded(path, "yuv444p").reshape(50, 3, 120, 160).astype(float)
        with kestrel.Movie(path) as movie:
            for picture, planes in zip(movie.pictures(), samples):
                # BT.601 in limited range, which players take for small pictures without marks.
                y, blue, red = (planes[0] - 16) / 219, (planes[1] - 128) / 224, (planes[2] - 128) / 224
                r, b = y + 1.402 * red, y + 1.772 * blue
                rgb = numpy.stack([r, (y - 0.299 * r - 0.114 * b) / 0.587, b], axis=-1)
                pixels = numpy.asarray(picture)
                self.assertEqual(pixels.shape, (120, 160, 3))
                difference = pixels - 255 * numpy.clip(rgb, 0, 1)
                self.assertLess(numpy.abs(difference).max(), 1.01)
            self.assertEqual(numpy.asarray(picture.rgba)[..., 3].min(), 255)

    def test_of_a_time_are_those_of_the_whole(self):
        with kestrel.Movie(material.movie()) as movie:
            whole = list(movie.pictures())
            for number in (37, 3, 49, 0, 25):
                picture = movie.picture(number / 25)
                self.assertAlmostEqual(picture.time, number / 25, places=5)
                self.assertAlmostEqual(picture.duration, 1 / 25, places=5)
                self.assertTrue(numpy.array_equal(picture, whole[number]))

    def test_come_by_span_and_step(self):
        with kestrel.Movie(material.movie()) as movie:
            times = [round(picture.time, 4) for picture in movie.pictures(0.4, 0.6)]
            self.assertEqual(times, [0.4, 0.44, 0.48, 0.52, 0.56])
            times = [round(picture.time, 4) for picture in movie.pictures(step=0.5)]
            self.assertEqual(times, [0, 0.48, 1, 1.48])
            self.assertEqual(list(movie.pictures(5)), [])
            with self.assertRaises(ValueError):
                movie.pictures(step=0)

    def test_iterators_do_not_disturb_each_other(self):
        with kestrel.Movie(material.movie()) as movie:
            both = zip(movie.pictures(), movie.pictures(1))
            for number, (first, second) in enumerate(both):
                movie.picture(0.2)
                self.assertAlmostEqual(second.time - first.time, 1, places=5)
            self.assertEqual(number, 24)

    def test_have_the_look_and_the_size_asked_for(self):
        with kestrel.Movie(material.movie(), crop=(20, 10, 80, 60), hflip=True) as movie:
            self.assertEqual(movie.size, (80, 60))
            part = numpy.asarray(movie.picture(1)).astype(int)
            small = movie.picture(1, size=(40, 30))
            self.assertEqual(numpy.asarray(small).shape, (30, 40, 3))
        with kestrel.Movie(material.movie()) as movie:
            whole = numpy.asarray(movie.picture(1)).astype(int)
        self.assertLess(numpy.abs(part[:, ::-1] - whole[10:70, 20:100]).mean(), 3)

    def test_show_themselves_and_are_saved(self):
        import PIL.Image

        with kestrel.Movie(material.movie()) as movie:
            picture = movie.picture(1)
            shown = PIL.Image.open(io.BytesIO(picture._repr_png_())).convert("RGB")
            self.assertTrue(numpy.array_equal(shown, picture))
            self.assertTrue(numpy.array_equal(picture.to_pil().convert("RGB"), picture))
            target = material.FOLDER / "picture.png"
            picture.save(target)
            self.assertTrue(numpy.array_equal(PIL.Image.open(target).convert("RGB"), picture))
            with self.assertRaises(FileExistsError):
                picture.save(target)


class Sound(unittest.TestCase):
    def test_is_the_decoded_one_to_the_sample(self):
        expected = material.heard(material.wave())
        with kestrel.Movie(material.wave()) as movie:
            samples = movie.sound()
            self.assertEqual(samples.sample_rate, 48000)
            self.assertTrue(numpy.array_equal(samples, expected))
            part = movie.sound(0.5, 0.75)
            self.assertTrue(numpy.array_equal(part, expected[24000:36000]))
            blocks = list(movie.sound_blocks(0.7, start=0.1))
            self.assertEqual([len(block) for block in blocks], [33600, 33600, 24000])
            self.assertTrue(numpy.array_equal(numpy.concatenate(blocks), expected[4800:]))

    def test_comes_in_another_form(self):
        with kestrel.Movie(material.movie()) as movie:
            samples = movie.sound(0, 1, sample_rate=16000, channels=1)
            self.assertEqual((samples.shape, samples.sample_rate), ((16000, 1), 16000))
            self.assertEqual(movie.sound(0, 1, channels="stereo").channels, 2)
            with self.assertRaises(kestrel.SettingsError):
                movie.sound(tracks="7")


class Inputs(unittest.TestCase):
    def test_bytes_and_files_are_like_paths(self):
        path = material.movie()
        with kestrel.Movie(path) as movie:
            expected = numpy.asarray(movie.picture(1.2))
            sound = numpy.asarray(movie.sound())
        data = path.read_bytes()
        with path.open("rb") as file:
            for given in (data, bytearray(data), io.BytesIO(data), file, str(path)):
                with kestrel.Movie(given) as movie:
                    self.assertTrue(numpy.array_equal(movie.picture(1.2), expected))
                    self.assertTrue(numpy.array_equal(movie.sound(), sound))

    def test_what_a_file_raises_is_raised(self):
        class Broken(io.BytesIO):
            fails = True

            def read(self, size=-1):
                if self.fails:
                    raise RuntimeError("no")
                return super().read(size)

        broken = Broken(material.movie().read_bytes())
        with self.assertRaisesRegex(RuntimeError, "^no$"):
            kestrel.Movie(broken)
        with self.assertRaisesRegex(RuntimeError, "^no$"):
            kestrel.convert(broken, material.FOLDER / "broken.mkv")
        broken.fails = False
        with kestrel.Movie(broken) as movie:
            movie.picture(0)
            broken.fails = True
            with self.assertRaisesRegex(RuntimeError, "^no$"):
                movie.sound()

    def test_a_file_that_answers_too_much_does_no_harm(self):
        class Talkative(io.BytesIO):
            def read(self, size=-1):
                return super().read(size) + bytes(1_000_000)

        with self.assertRaisesRegex(ValueError, "more bytes"):
            kestrel.Movie(Talkative(material.movie().read_bytes()))

    def test_times_are_numbers(self):
        with kestrel.Movie(material.movie()) as movie:
            for wrong in (float("nan"), float("inf")):
                with self.assertRaises(ValueError):
                    movie.picture(wrong)
                with self.assertRaises(ValueError):
                    movie.sound(0, wrong)
            self.assertEqual(len(movie.sound(-1, 0.5)), 24000)

    def test_text_may_be_any_bytes(self):
        path = material.FOLDER / "latin.avi"
        material.movie("tagged.avi", "-c:v", "mpeg4", "-an", "-metadata", "title=XXcafeXX")
        data = (material.FOLDER / "tagged.avi").read_bytes().replace(b"XXcafeXX", b"XXcaf\xe9XX")
        path.write_bytes(data)
        with kestrel.Movie(path) as movie:
            self.assertIn("XXcaf", movie.info.tags["title"])


class Lifetimes(unittest.TestCase):
    def test_closing_lets_go_of_the_file(self):
        kestrel.Movie(material.movie()).close()
        before = open_files()
        movie = kestrel.Movie(material.movie())
        pictures = movie.pictures()
        drawn, later = next(pictures), next(pictures)
        pixels = numpy.asarray(drawn)
        movie.sound(0, 0.1)
        blocks = movie.sound_blocks(0.1)
        next(blocks)
        self.assertGreater(open_files(), before)
        movie.close()
        self.assertEqual(open_files(), before)
        self.assertEqual(pixels.shape, (120, 160, 3))
        self.assertEqual(numpy.asarray(later.planes[0]).shape, (120, 160))
        with self.assertRaises(BufferError):
            memoryview(later)
        for ask in (
            lambda: next(pictures),
            lambda: next(blocks),
            lambda: numpy.asarray(later),
            lambda: movie.picture(0),
            lambda: movie.sound(),
            lambda: later.to_pil(),
        ):
            with self.assertRaises(ValueError):
                ask()

    def test_pixels_outlive_their_picture(self):
        with kestrel.Movie(material.movie()) as movie:
            pixels = numpy.asarray(movie.picture(1))
            copy = pixels.copy()
            for _ in movie.pictures():
                pass
        gc.collect()
        self.assertTrue(numpy.array_equal(pixels, copy))
        with self.assertRaises(ValueError):
            pixels[0, 0] = 0

    def test_opening_again_and_again_keeps_no_memory(self):
        def resident():
            pages = int(Path("/proc/self/statm").read_text().split()[1])
            return pages * os.sysconf("SC_PAGE_SIZE")

        def use(times):
            for _ in range(times):
                with kestrel.Movie(material.movie()) as movie:
                    numpy.asarray(movie.picture(0))
                    movie.sound(0, 0.1)
            gc.collect()

        use(20)
        before = resident()
        use(60)
        self.assertLess(resident() - before, 6_000_000)

    def test_threads_read_movies_of_their_own_and_share_one(self):
        path = material.movie()
        with kestrel.Movie(path) as shared:
            expected = [numpy.asarray(picture).copy() for picture in shared.pictures()]
            wrong = []

            def read(number):
                with kestrel.Movie(path) as own:
                    for picture, pixels in zip(own.pictures(), expected):
                        if not numpy.array_equal(picture, pixels):
                            wrong.append(number)
                for at in range(number, 50, 10):
                    if not numpy.array_equal(shared.picture(at / 25), expected[at]):
                        wrong.append(number)

            self.run_together([lambda number=number: read(number) for number in range(10)])
            self.assertEqual(wrong, [])

    def test_threads_share_iterators_and_sizes(self):
        with kestrel.Movie(material.movie()) as movie:
            times, frames, wrong = [], [], []
            pictures, blocks = movie.pictures(), movie.sound_blocks(0.01)

            def take():
                for picture in pictures:
                    times.append(round(picture.time * 25))
                for block in blocks:
                    frames.append(len(block))

            def draw(width):
                for number in range(20):
                    picture = movie.picture(number / 25, size=(width, 30))
                    if numpy.asarray(picture).shape != (30, width, 3):
                        wrong.append(width)

            self.run_together([take] * 3 + [lambda width=width: draw(width) for width in (40, 60)])
            self.assertEqual(sorted(times), list(range(50)))
            self.assertEqual(sum(frames), len(movie.sound()))
            self.assertEqual(wrong, [])

    def run_together(self, jobs):
        threads = [threading.Thread(target=job) for job in jobs]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def test_a_signals_handler_ends_the_work_and_may_use_the_movie(self):
        class Enough(Exception):
            pass

        # Longer than it takes to notice a signal.
        path = material.movie("long.mkv", "-vf", "loop=60:50", "-c:v", "mpeg4", "-g", "3000", "-an")
        with kestrel.Movie(path) as movie:

            def handle(number, frame):
                self.assertEqual(movie.size, (160, 120))
                raise Enough

            before = signal.signal(signal.SIGALRM, handle)
            signal.setitimer(signal.ITIMER_REAL, 0.1)
            try:
                with self.assertRaises(Enough):
                    while True:
                        for _ in movie.pictures():
                            pass
            finally:
                signal.signal(signal.SIGALRM, before)
            self.assertAlmostEqual(movie.picture(1).time, 1, places=2)


if __name__ == "__main__":
    unittest.main()
